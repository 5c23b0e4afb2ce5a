// The mutex from the inside, for the parts of this library that are built on it.
#ifndef TEV_PLATFORM_MUTEX_H
#define TEV_PLATFORM_MUTEX_H

#include "platform/internal/Failure.h"
#include "platform/internal/Self.h"
#include "platform/internal/Wait.h"
#include "platform/krLock.h"

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

/// The place of a lock call in the source, as its caller names it for reports of long waits.
struct Place {
  const char* file;
  int line;
  const char* function;
  const char* description;
};

/// Makes a mutex in a block of sizeof(KrMutex) bytes. Null when the system refuses; the block stays the caller's.
KrMutex* makeMutex(void* block);

/// Tries to lock: 0, EBUSY or another error number.
inline int tryMutex(KrMutex* mutex) {
  const int error = pthread_mutex_trylock(&mutex->main);
  // A thread that comes back finds its own name: one store less on the way of most locks.
  if (error == 0 && mutex->owner.load(std::memory_order_relaxed) != self())
    mutex->owner.store(self(), std::memory_order_relaxed);
  return error;
}

/// Waits for a mutex that a try found taken, in `cancelState`. Called with cancellation disabled.
int waitForMutex(KrMutex* mutex, int timeoutMs, const Place& place, int cancelState);

/// krMutexLockDebug without limit for callers whose cancellation is disabled or deferred: blocks in `cancelState`,
/// which may be asItIs.
inline int lockMutex(KrMutex* mutex, const Place& place, int cancelState) {
  const int error = tryMutex(mutex);
  if (error == 0) return 0;
  if (error != EBUSY) return failWith(error);
  return uncancelled([&](int found) {
    return waitForMutex(mutex, KR_WAIT_FOREVER, place, cancelState == asItIs ? found : cancelState);
  });
}

/// Unlocks a mutex that the caller was the last to lock. Called with cancellation disabled or deferred: a thread
/// cancelled between the release and the broadcast would leave the waiters asleep.
inline void unlockMutex(KrMutex* mutex) {
  // Refused when the last owner unlocks once more than it locked: nothing is released then.
  (void)pthread_mutex_unlock(&mutex->main);
  wakeWaiters(mutex);
}

/// Holds a mutex for a scope; waiting for it is no cancellation point. For mutexes that are not destroyed meanwhile: a
/// lock without limit then always succeeds. Not for frames that run while cancellation is asynchronous.
class Held {
public:
  Held(KrMutex* mutex, const Place& place) : _mutex(mutex) { (void)lockMutex(_mutex, place, PTHREAD_CANCEL_DISABLE); }
  Held(KrMutex* mutex, const char* file, int line, const char* function) : Held(mutex, {file, line, function, ""}) {}
  ~Held() { unlockMutex(_mutex); }
  Held(const Held&) = delete;
  Held& operator=(const Held&) = delete;

private:
  KrMutex* const _mutex;
};

} // namespace kr

#endif
