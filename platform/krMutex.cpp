#include "platform/krLock.h"

#include "platform/internal/Diagnostic.h"
#include "platform/internal/Mutex.h"
#include "platform/internal/Uncancelled.h"
#include "platform/krMem.h"

#include <cerrno>
#include <cstdlib>
#include <execinfo.h>
#include <memory>
#include <new>

namespace {

constexpr int sliceMs = 20'000;
constexpr int maxFrames = 50;

bool initRecursive(pthread_mutex_t* mutex) {
  pthread_mutexattr_t attributes;
  if (pthread_mutexattr_init(&attributes) != 0) return false;
  // Neither fails for attributes just made.
  (void)pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
  const bool made = pthread_mutex_init(mutex, &attributes) == 0;
  (void)pthread_mutexattr_destroy(&attributes);
  return made;
}

struct Release {
  void operator()(char** frames) const { free(frames); }
};

void reportExcessiveWait(const KrMutex* mutex, unsigned long waited, const kr::Place& place, int cancelState) {
  const kr::Line line = kr::stampedLine(
      "krMutexLock: Excessive wait (%lus) for Mutex[%p], File[%s], Line[%d], Func[%s], Desc[%s], owner[%d]\n", waited,
      static_cast<const void*>(mutex), kr::orEmpty(place.file), place.line, kr::orEmpty(place.function),
      kr::orEmpty(place.description), kr::signedId(mutex->owner.load(std::memory_order_relaxed)));
  void* addresses[maxFrames];
  const int found = backtrace(addresses, maxFrames);
  const std::unique_ptr<char*, Release> texts(backtrace_symbols(addresses, found));
  char** const frames = texts.get();
  const int count = frames != nullptr ? found : 0;
  char path[64];
  (void)snprintf(path, sizeof path, "%s/mutexExcessiveWaitTid%d.log", kr::logDirectory, kr::signedId(kr::self()));
  kr::writeFile(path, "w+e", line, frames, count);
  kr::say(cancelState, stdout, "%s", line.text);
  for (int i = 0; i < count; ++i)
    kr::say(cancelState, stdout, "%s\n", frames[i]);
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

int waitForMutex(KrMutex* mutex, int timeoutMs, const Place& place, int cancelState) {
  const bool forever = timeoutMs == KR_WAIT_FOREVER;
  const auto tryIt = [mutex] { return tryMutex(mutex); };
  unsigned long waited = 0;
  int error = 0;
  enter(mutex);
  for (;;) {
    const timespec deadline = deadlineAfter(forever ? sliceMs : timeoutMs);
    error = waitForTurn(mutex, &deadline, cancelState, tryIt);
    if (!forever || error != KR_ERR_TIMEOUT) break;
    // Still counted as a waiter, so that the mutex outlives the report.
    (void)pthread_mutex_unlock(&mutex->guard);
    waited += sliceMs / 1000;
    OnCancel onCancel{[mutex] {
      (void)pthread_mutex_lock(&mutex->guard);
      leave(mutex);
    }};
    reportExcessiveWait(mutex, waited, place, cancelState);
    onCancel.armed = false;
    (void)pthread_mutex_lock(&mutex->guard);
  }
  leave(mutex);
  return error == 0 ? 0 : failWith(error);
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
  if (mutex == nullptr) return kr::failWith(KR_ERR_INVALID);
  const int error = kr::tryMutex(mutex);
  if (error == 0) return 0;
  if (error != EBUSY || timeoutMs == KR_NO_WAIT) return kr::failWith(error);
  const kr::Place place{file, line, function, description};
  return kr::uncancelled([&](int cancelState) { return kr::waitForMutex(mutex, timeoutMs, place, cancelState); });
}

int krMutexUnlock(KrMutex* mutex) {
  if (mutex == nullptr) return kr::failWith(KR_ERR_INVALID);
  if (mutex->owner.load(std::memory_order_relaxed) != kr::self()) return kr::failWith(EPERM);
  if (kr::asynchronousThread)
    kr::uncancelled([mutex] { kr::unlockMutex(mutex); });
  else
    kr::unlockMutex(mutex);
  return 0;
}

void krMutexDestroy(KrMutex* mutex) {
  if (mutex == nullptr) return;
  kr::uncancelled([mutex] {
    kr::endWaiting(mutex);
    // A mutex that is still held refuses; it has nothing to release, and its block goes all the same.
    (void)pthread_mutex_destroy(&mutex->main);
    krFree(mutex);
  });
}
