#include "platform/krTime.h"

#include "platform/internal/Self.h"
#include "platform/internal/Uncancelled.h"

#include <sched.h>
#include <sys/select.h>
#include <sys/time.h>

int krGetTime(KrTime* out) {
  timeval now{};
  if (gettimeofday(&now, nullptr) != 0) return -1;
  out->seconds = static_cast<uint32_t>(now.tv_sec);
  out->nanoseconds = static_cast<uint32_t>(now.tv_usec) * 1000;
  return 0;
}

uint32_t krDiffTime(const KrTime& start, const KrTime& end) {
  if (end.seconds < start.seconds) return 0;
  uint32_t seconds = end.seconds - start.seconds;
  uint32_t nanoseconds = end.nanoseconds;
  if (nanoseconds < start.nanoseconds) {
    --seconds;
    nanoseconds += 1'000'000'000;
  }
  return seconds * 1000 + (nanoseconds - start.nanoseconds) / 1'000'000;
}

KR_UNWOUND_BY_CANCELLATION int krThreadSuspend(int milliseconds) {
  if (milliseconds == 0) {
    // sched_yield always succeeds on Linux.
    (void)sched_yield();
    return 0;
  }
  timeval time{};
  time.tv_sec = milliseconds / 1000;
  time.tv_usec = suseconds_t{milliseconds % 1000} * 1000;
  return select(0, nullptr, nullptr, nullptr, &time) == 0 ? 0 : -1;
}

int krThreadPause(KrThreadId) {
  // An interrupted pause is a short one.
  (void)krThreadSuspend(1);
  return 0;
}

KrThreadId krThreadIdSelf() { return kr::self(); }

const char* krThreadName(KrThreadId) { return ""; }
