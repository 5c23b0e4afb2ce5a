// The mutex from the inside, for the parts of this library that are built on it.
#ifndef TEV_PLATFORM_MUTEX_H
#define TEV_PLATFORM_MUTEX_H

#include "platform/krLock.h"
#include "platform/krTime.h"

#include <atomic>
#include <pthread.h>

struct KrMutex {
  pthread_mutex_t main;          ///< recursive; holding it is holding the mutex
  pthread_cond_t wakeUp;         ///< this, `guard`, `deleted` and `waiters`: see Wait.h
  pthread_mutex_t guard;         ///< recursive
  std::atomic<KrThreadId> owner; ///< who acquired `main` last; 0 until then; unlocking leaves it
  std::atomic<int> deleted;
  std::atomic<unsigned> waiters;
};

namespace kr {

/// Where a lock call stands in the source, as its caller names it.
struct Place {
  const char* file;
  int line;
  const char* function;
  const char* description;
};

/// Makes a mutex in a block of sizeof(KrMutex) bytes. Null when the system refuses; the block stays the caller's.
KrMutex* makeMutex(void* block);

/// krMutexLockDebug for callers that have cancellation disabled: blocks in `cancelState`.
int lockMutex(KrMutex* mutex, int timeoutMs, const Place& place, int cancelState);

/// Holds a mutex for a scope; waiting for it is no cancellation point. For mutexes that are not destroyed meanwhile: a
/// lock without limit then always succeeds. Not for frames that run while cancellation is asynchronous.
class Held {
public:
  Held(KrMutex* mutex, const char* file, int line, const char* function) : mutex_(mutex) {
    (void)lockMutex(mutex_, KR_WAIT_FOREVER, {file, line, function, ""}, PTHREAD_CANCEL_DISABLE);
  }
  ~Held() { (void)krMutexUnlock(mutex_); }
  Held(const Held&) = delete;
  Held& operator=(const Held&) = delete;

private:
  KrMutex* const mutex_;
};

} // namespace kr

#endif
