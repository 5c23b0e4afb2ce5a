// Cancellation between any two instructions, where pthread_cancel alone is not up to it.
//
// pthread_cancel unwinds a thread from wherever its signal finds it. On 32-bit ARM the unwind tables describe a frame
// as it is at the calls it makes, not while it is being set up or taken down; an unwind that begins there reads its way
// from the wrong words of the stack. So on such a machine a signal of the library's own comes first. It notes the
// cancellation, and looks where it finds its thread:
//
//  - not open to cancellation anywhere: the thread ends in the call that opens it again, or in its wait;
//  - in a system call: the frames are complete there, and the thread is unwound as on other machines;
//  - elsewhere: the frames in between own nothing; the thread jumps back to its beginning and exits from there.
//
// A thread that keeps this signal from itself is left to pthread_cancel.
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

/// pthread_cancel for a thread of this library that does not end meanwhile.
int cancelThread(KrThreadId tid);

#else

inline WayOut setWayOut(WayOut) { return nullptr; }
inline int cancelThread(KrThreadId tid) { return pthread_cancel(tid); }

#endif

/// Runs `work` open to cancellation anywhere. The frames from here on own nothing with a destructor.
void cancellableAnywhere(void (*work)(const void* argument), const void* argument);

} // namespace kr

#endif
