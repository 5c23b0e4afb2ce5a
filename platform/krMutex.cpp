#include "platform/krLock.h"

#include "platform/Diagnostic.h"
#include "platform/Mutex.h"
#include "platform/Self.h"
#include "platform/Uncancelled.h"
#include "platform/Wait.h"
#include "platform/krMem.h"

#include <cerrno>
#include <cstdlib>
#include <execinfo.h>
#include <new>

namespace {

constexpr int sliceMs = 20'000;
constexpr int maxFrames = 50;

/// Where a lock call stands in the source, as its caller names it.
struct Place {
  const char* file;
  int line;
  const char* function;
  const char* description;
};

const char* orEmpty(const char* text) { return text != nullptr ? text : ""; }

int failWith(int error) {
  errno = error;
  return -1;
}

bool initRecursive(pthread_mutex_t* mutex) {
  pthread_mutexattr_t attributes;
  if (pthread_mutexattr_init(&attributes) != 0) return false;
  // Neither fails for attributes just made.
  (void)pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
  const bool made = pthread_mutex_init(mutex, &attributes) == 0;
  (void)pthread_mutexattr_destroy(&attributes);
  return made;
}

int tryMain(KrMutex* mutex) {
  const int error = pthread_mutex_trylock(&mutex->main);
  // A thread that comes back finds its own name: one store less on the way of most locks.
  if (error == 0 && mutex->owner.load(std::memory_order_relaxed) != kr::self())
    mutex->owner.store(kr::self(), std::memory_order_relaxed);
  return error;
}

void reportExcessiveWait(const KrMutex* mutex, unsigned long waited, const Place& place) {
  const kr::Line line = kr::stampedLine(
      "krMutexLock: Excessive wait (%lus) for Mutex[%p], File[%s], Line[%d], Func[%s], Desc[%s], owner[%d]\n", waited,
      static_cast<const void*>(mutex), orEmpty(place.file), place.line, orEmpty(place.function),
      orEmpty(place.description), kr::signedId(mutex->owner.load(std::memory_order_relaxed)));
  void* addresses[maxFrames];
  const int found = backtrace(addresses, maxFrames);
  char** const frames = backtrace_symbols(addresses, found);
  const int count = frames != nullptr ? found : 0;
  char path[64];
  (void)snprintf(path, sizeof path, "%s/mutexExcessiveWaitTid%d.log", kr::logDirectory, kr::signedId(kr::self()));
  kr::writeFile(path, "w+", line, frames, count);
  kr::say(stdout, "%s", line.text);
  for (int i = 0; i < count; ++i)
    kr::say(stdout, "%s\n", frames[i]);
  free(frames);
}

/// Called with the guard held. The destroyer waits for the last one to leave.
void leave(KrMutex* mutex) {
  if (mutex->waiters.fetch_sub(1, std::memory_order_acq_rel) == 1 &&
      mutex->deleted.load(std::memory_order_relaxed) != 0)
    (void)pthread_cond_broadcast(&mutex->wakeUp);
}

/// Waits until the mutex is the caller's or `deadline` has passed. Called with the guard held, as a counted waiter.
/// Returns 0 or an errno value.
int waitForMain(KrMutex* mutex, const timespec& deadline, int cancelState) {
  for (;;) {
    if (mutex->deleted.load(std::memory_order_relaxed) != 0) return KR_ERR_INVALID;
    const int error = tryMain(mutex);
    if (error != EBUSY) return error;
    const int wait = kr::waitOn(&mutex->wakeUp, &mutex->guard, &deadline, cancelState, [mutex] { leave(mutex); });
    if (wait == ETIMEDOUT) return mutex->deleted.load(std::memory_order_relaxed) != 0 ? KR_ERR_INVALID : KR_ERR_TIMEOUT;
    if (wait != 0) return wait;
  }
}

/// The way of those who found the mutex taken. Called with cancellation disabled; waits in `cancelState`.
int lockTaken(KrMutex* mutex, int timeoutMs, const Place& place, int cancelState) {
  // The guard is a recursive lock of the library's own, held for moments: locking it cannot fail.
  (void)pthread_mutex_lock(&mutex->guard);
  // A waiter counts itself before it tries, and an unlock reads the count after it has released; both change the one
  // word. If the waiter comes first, the unlock sees it and broadcasts, for which it needs the guard, and that is free
  // only once the waiter sleeps or has left. If the unlock comes first, the release lies before the waiter's try, which
  // then finds the mutex free or with a later owner, to whom the same applies. So no release is missed. The waiter
  // stays counted while it reports, so that the mutex outlives the report.
  mutex->waiters.fetch_add(1, std::memory_order_acq_rel);
  const bool forever = timeoutMs == KR_WAIT_FOREVER;
  unsigned long waited = 0;
  int error = 0;
  for (;;) {
    error = waitForMain(mutex, kr::deadlineAfter(forever ? sliceMs : timeoutMs), cancelState);
    if (!forever || error != KR_ERR_TIMEOUT) break;
    (void)pthread_mutex_unlock(&mutex->guard);
    waited += sliceMs / 1000;
    reportExcessiveWait(mutex, waited, place);
    (void)pthread_mutex_lock(&mutex->guard);
  }
  leave(mutex);
  (void)pthread_mutex_unlock(&mutex->guard);
  return error == 0 ? 0 : failWith(error);
}

[[gnu::noinline]] void wakeWaiters(KrMutex* mutex) {
  (void)pthread_mutex_lock(&mutex->guard);
  (void)pthread_cond_broadcast(&mutex->wakeUp);
  (void)pthread_mutex_unlock(&mutex->guard);
}

} // namespace

namespace kr {

KrMutex* makeMutex(void* block) {
  auto* const mutex = new (block) KrMutex{};
  if (!initRecursive(&mutex->main)) return nullptr;
  if (!initRecursive(&mutex->guard)) {
    (void)pthread_mutex_destroy(&mutex->main);
    return nullptr;
  }
  // Fails for no default condition.
  (void)pthread_cond_init(&mutex->wakeUp, nullptr);
  return mutex;
}

} // namespace kr

KrMutex* krMutexCreate() {
  return kr::uncancelled([]() -> KrMutex* {
    void* const block = krMalloc(sizeof(KrMutex));
    KrMutex* const mutex = block != nullptr ? kr::makeMutex(block) : nullptr;
    if (mutex == nullptr) {
      krFree(block);
      errno = KR_ERR_NO_MEMORY;
    }
    return mutex;
  });
}

int krMutexLockDebug(KrMutex* mutex, int timeoutMs, const char* file, int line, const char* function,
                     const char* description) {
  if (mutex == nullptr) return failWith(KR_ERR_INVALID);
  const int error = tryMain(mutex);
  if (error == 0) return 0;
  if (error != EBUSY || timeoutMs == KR_NO_WAIT) return failWith(error);
  const Place place{file, line, function, description};
  return kr::uncancelled([&](int cancelState) { return lockTaken(mutex, timeoutMs, place, cancelState); });
}

int krMutexUnlock(KrMutex* mutex) {
  if (mutex == nullptr) return failWith(KR_ERR_INVALID);
  if (mutex->owner.load(std::memory_order_relaxed) != kr::self()) return failWith(EPERM);
  // A thread cancelled between the release and the broadcast would leave the waiters asleep.
  return kr::uncancelledIfAsynchronous([mutex] {
    // Refused when the last owner unlocks once more than it locked: nothing is released then.
    (void)pthread_mutex_unlock(&mutex->main);
    // Read by a change that changes nothing: see lockTaken.
    if (mutex->waiters.fetch_add(0, std::memory_order_acq_rel) != 0) wakeWaiters(mutex);
    return 0;
  });
}

void krMutexDestroy(KrMutex* mutex) {
  if (mutex == nullptr) return;
  kr::uncancelled([mutex] {
    (void)pthread_mutex_lock(&mutex->guard);
    mutex->deleted.store(1, std::memory_order_relaxed);
    (void)pthread_cond_broadcast(&mutex->wakeUp);
    while (mutex->waiters.load(std::memory_order_relaxed) != 0)
      (void)pthread_cond_wait(&mutex->wakeUp, &mutex->guard);
    (void)pthread_mutex_unlock(&mutex->guard);
    // A destroyer that holds the mutex gives it up first: the kind of lock below must not be destroyed while held.
    if (mutex->owner.load(std::memory_order_relaxed) == kr::self())
      while (pthread_mutex_unlock(&mutex->main) == 0) {
      }
    // Only a mutex that another thread still holds refuses; its block goes all the same.
    (void)pthread_mutex_destroy(&mutex->main);
    (void)pthread_mutex_destroy(&mutex->guard);
    (void)pthread_cond_destroy(&mutex->wakeUp);
    krFree(mutex);
  });
}
