// The mutex from the inside, for the parts of this library that are built on it.
#ifndef TEV_PLATFORM_MUTEX_H
#define TEV_PLATFORM_MUTEX_H

#include "platform/krLock.h"
#include "platform/krTime.h"

#include <atomic>
#include <cstddef>
#include <pthread.h>

struct KrMutex {
  pthread_mutex_t main;          ///< recursive; holding it is holding the mutex
  pthread_cond_t wakeUp;         ///< where those wait who found `main` taken
  pthread_mutex_t guard;         ///< recursive; protects the wait on `wakeUp`
  std::atomic<KrThreadId> owner; ///< who acquired `main` last; 0 until then; unlocking leaves it
  std::atomic<int> deleted;
  std::atomic<unsigned> waiters; ///< threads that found `main` taken and have not left yet; raised under `guard`
};

namespace kr {

/// Makes a mutex in a block of sizeof(KrMutex) bytes. Returns null when the system refuses; the block stays the
/// caller's.
KrMutex* makeMutex(void* block);

/// Holds a mutex for a scope. Only for code that runs with cancellation disabled, and for mutexes that are not
/// destroyed meanwhile: a lock without limit then always succeeds.
class Held {
public:
  Held(KrMutex* mutex, const char* file, int line, const char* function) : mutex_(mutex) {
    (void)krMutexLockDebug(mutex_, KR_WAIT_FOREVER, file, line, function, "");
  }
  ~Held() { (void)krMutexUnlock(mutex_); }
  Held(const Held&) = delete;
  Held& operator=(const Held&) = delete;

private:
  KrMutex* const mutex_;
};

} // namespace kr

#endif
