// Wall-clock time, sleeping, and who the calling thread is.
#ifndef TEV_PLATFORM_KRTIME_H
#define TEV_PLATFORM_KRTIME_H

#include <cstdint>
#include <pthread.h>

/// A thread is known by its POSIX handle, as wide as the machine makes it. KR_NO_THREAD (-1) means no thread.
using KrThreadId = pthread_t;
constexpr KrThreadId KR_NO_THREAD = static_cast<KrThreadId>(-1);

/// Wall-clock time since the epoch.
struct KrTime {
  uint32_t seconds;
  uint32_t nanoseconds;
};

int krGetTime(KrTime* out);
uint32_t krDiffTime(const KrTime& start, const KrTime& end);
int krThreadSuspend(int milliseconds);
int krThreadPause(KrThreadId tid);
KrThreadId krThreadIdSelf();
const char* krThreadName(KrThreadId tid);

#endif
