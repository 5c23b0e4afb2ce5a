#include "platform/CKrThread.h"

#include "platform/internal/Failure.h"
#include "platform/internal/LiveThreads.h"
#include "platform/internal/Uncancelled.h"

namespace {

/// Held by an object while its thread is being made. No thread has this id.
constexpr KrThreadId starting = 0;

/// Makes a call about an object's thread while it is sure to exist, or about no thread.
template <class Call>
int whileItLives(KrThreadId tid, const CKrThread* object, Call call) {
  return kr::uncancelled([&] {
    if (!kr::hold(tid, reinterpret_cast<intptr_t>(object))) return call(KR_NO_THREAD);
    const int result = call(tid);
    kr::letGo(tid);
    return result;
  });
}

} // namespace

CKrThread::CKrThread() : _logger(krLogGetLogger("comps.kr")) {}

// Calls nothing that could throw as far as the compiler sees: a cancellation passes through.
CKrThread::~CKrThread() { kill(); }

KrThreadId CKrThread::threadId() const {
  KrThreadId tid = starting;
  while ((tid = _tid) == starting)
    krThreadSuspend(1);
  return tid;
}

void CKrThread::start(const char* name, int priority, int stackSize) {
  KrThreadId tid = KR_NO_THREAD;
  // Somebody cancelled in between would leave a thread that no object knows.
  kr::uncancelled([=, &tid](int cancelState) {
    if (!_tid.compare_exchange_strong(tid, starting)) return;
    (void)kr::spawnDetached(name, priority, stackSize, entry, {reinterpret_cast<intptr_t>(this)}, &_tid, cancelState);
  });
  if (tid != KR_NO_THREAD) krWarn(_logger, "Trying to restart %s - ignored", krThreadName(tid));
}

[[gnu::nothrow]] void CKrThread::kill() {
  KrThreadId tid = threadId();
  while (!_tid.compare_exchange_strong(tid, KR_NO_THREAD))
    tid = threadId();
  // The thread may have ended by itself and its id be another's by now; its object's address is not.
  if (kr::isThread(tid)) kr::endThread(tid, reinterpret_cast<intptr_t>(this));
}

int CKrThread::pause() { return krThreadPause(threadId()); }

int CKrThread::resume() { return krThreadResume(threadId()); }

const char* CKrThread::getName() { return krThreadName(threadId()); }

int CKrThread::getPriority(int* priority) {
  return whileItLives(threadId(), this, [priority](KrThreadId tid) { return krThreadGetPriority(tid, priority); });
}

int CKrThread::setPriority(int priority) {
  return whileItLives(threadId(), this, [priority](KrThreadId tid) { return krThreadSetPriority(tid, priority); });
}

// Runs while the thread can be cancelled anywhere: this frame owns nothing.
int CKrThread::entry(intptr_t object, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t,
                     intptr_t) {
  reinterpret_cast<CKrThread*>(object)->run(); // NOLINT(performance-no-int-to-ptr)
  return 0;
}
