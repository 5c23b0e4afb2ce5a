// Cancellation between any two instructions, where pthread_cancel alone is not up to it.
//
// pthread_cancel signals a thread that it has found open to cancellation, and the signal's handler looks at the type of
// cancellation alone. A thread that has disabled cancellation meanwhile, and is in a cancellation point of the C
// library, is cancelled with all that it holds. So a signal of the library's own comes first: its handler looks at both
// and notes the cancellation; pthread_cancel afterwards has no effect. A thread that is open is unwound
// from where it is, any other one ends in the call that opens it again, or in its wait.
//
// On 32-bit ARM the unwind tables describe a frame as it is at the calls it makes, not while it is being set up or
// taken down; an unwind that begins there reads its way from the wrong words of the stack. There a thread that is open
// anywhere is unwound only from a system call, where the frames are complete. From elsewhere it jumps back to its
// beginning and exits from there: the frames in between own nothing. And a thread that can be cancelled in its wait
// only, but is found on the way into it or out of it, is looked at again a millisecond later.
//
// A thread that keeps this signal from itself is left to pthread_cancel.
#ifndef TEV_PLATFORM_CANCELANYWHERE_H
#define TEV_PLATFORM_CANCELANYWHERE_H

#include "platform/krThreadId.h"

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

/// On a thread that ends: gives back what the cancellation took.
void endCancelling();

/// pthread_cancel for a thread of this library that does not end meanwhile.
int cancelThread(KrThreadId tid);

using WayOut = sigjmp_buf*;

#if KR_UNWINDS_FROM_CALLS_ONLY

/// Where the calling thread goes when it is cancelled anywhere; null where cancellation has to unwind it.
inline thread_local WayOut wayOut = nullptr;

/// Sets it, and returns what it was.
inline WayOut setWayOut(WayOut to) { return std::exchange(wayOut, to); }

#else

inline WayOut setWayOut(WayOut) { return nullptr; }

#endif

/// Runs `work` open to cancellation anywhere. The frames from here on own nothing with a destructor.
void cancellableAnywhere(void (*work)(const void* argument), const void* argument);

} // namespace kr

#endif
