// Wall-clock time and sleeping. All calls are safe from any thread; none holds state.
#ifndef TEV_PLATFORM_KRTIME_H
#define TEV_PLATFORM_KRTIME_H

#include "platform/krThreadId.h"

#include <cstdint>

/// Wall-clock time since the epoch, with the microsecond resolution of the system's clock.
struct KrTime {
  uint32_t seconds;
  uint32_t nanoseconds; ///< 0 to 999,999,999
};

/// Reads the wall clock. Returns 0, or -1 with `*out` untouched when the clock cannot be read.
int krGetTime(KrTime* out);

/// Elapsed milliseconds from `start` to `end`, modulo 2^32 (about 49 days). 0 when the seconds of `end` lie before
/// those of `start`; an earlier end within the same second is a negative number modulo 2^32.
uint32_t krDiffTime(const KrTime& start, const KrTime& end);

/// Lets the calling thread sleep for that many milliseconds; 0 only yields the processor. Returns 0, or -1 with errno
/// EINTR when a signal ended the sleep early and EINVAL for a negative time. A cancellation point.
int krThreadSuspend(int milliseconds);

/// Lets the CALLING thread sleep for one millisecond, for any thread id. Returns 0.
int krThreadPause(KrThreadId tid);

#endif
