// Cancellation between any two instructions, where pthread_cancel alone is not up to it.
//
// pthread_cancel unwinds a thread from wherever its signal finds it. On 32-bit ARM the unwind tables describe a frame
// as it is at the calls it makes, not while it is being set up or taken down; an unwind that begins there reads its way
// from the wrong words of the stack. So on such a machine a signal of the library's own looks first whether its thread
// is open to cancellation anywhere. If it is, the frames in between own nothing: the thread jumps back to its beginning
// and exits from there. If not, it takes note of the cancellation itself, and ends in the call that opens it again.
#ifndef TEV_PLATFORM_CANCELANYWHERE_H
#define TEV_PLATFORM_CANCELANYWHERE_H

#include "platform/krTime.h"

#include <csetjmp>
#include <pthread.h>
#include <utility>

#if defined(__ARM_EABI__)
#define KR_UNWINDS_FROM_CALLS_ONLY 1
#else
#define KR_UNWINDS_FROM_CALLS_ONLY 0
#endif

namespace kr {

/// Before a thread is created, one caller at a time. Returns 0 or an error number.
int prepareCancelling();

using WayOut = sigjmp_buf*;

#if KR_UNWINDS_FROM_CALLS_ONLY

/// Where the calling thread goes when it is cancelled anywhere; null where cancellation has to unwind it.
inline thread_local WayOut wayOut = nullptr;

/// Sets it, and returns what it was.
inline WayOut setWayOut(WayOut to) { return std::exchange(wayOut, to); }

/// pthread_cancel for a live thread of this library.
int cancelThread(KrThreadId tid);

/// On a new thread: lets the cancellations of others reach it.
void acceptCancelling();

#else

inline WayOut setWayOut(WayOut) { return nullptr; }
inline int cancelThread(KrThreadId tid) { return pthread_cancel(tid); }
inline void acceptCancelling() {}

#endif

/// Runs `work` open to cancellation anywhere. The frame owns nothing with a destructor.
template <class Work>
[[gnu::noinline]] void cancellableAnywhere(const Work& work) {
#if KR_UNWINDS_FROM_CALLS_ONLY
  sigjmp_buf beginning;
  if (sigsetjmp(beginning, 1) != 0) pthread_exit(PTHREAD_CANCELED);
  (void)setWayOut(&beginning);
#endif
  acceptCancelling();
  // These fail only for values that do not exist.
  (void)pthread_setcanceltype(PTHREAD_CANCEL_ASYNCHRONOUS, nullptr);
  (void)pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
  work();
  (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
  (void)setWayOut(nullptr);
}

} // namespace kr

#endif
