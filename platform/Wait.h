// Waiting on a kernel condition, as the mutex and the semaphore do it: with a deadline, open to cancellation, and
// leaving nothing locked behind when the thread is cancelled.
#ifndef TEV_PLATFORM_WAIT_H
#define TEV_PLATFORM_WAIT_H

#include "platform/Uncancelled.h"

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <pthread.h>
#include <sys/time.h>

namespace kr {

/// The moment `timeoutMs` from now on the wall clock; a negative time is over at once.
inline timespec deadlineAfter(int timeoutMs) {
  timeval now{};
  // gettimeofday cannot fail with a valid address.
  (void)gettimeofday(&now, nullptr);
  const int64_t total = int64_t{std::max(timeoutMs, 0)} + now.tv_usec / 1000;
  timespec deadline{};
  deadline.tv_sec = now.tv_sec + static_cast<time_t>(total / 1000);
  deadline.tv_nsec = static_cast<long>(total % 1000) * 1'000'000;
  return deadline;
}

/// Waits on `condition` until `deadline` (without one when null). The caller holds `guard` once, has cancellation
/// disabled, and names the state to wait in: the one it found when it was called. Cancellation is deferred while it is
/// enabled, so that it arrives inside the wait only, where the unwinder knows its way. A thread cancelled there calls
/// `leave` with the guard held, releases the guard and ends.
template <class Leave>
[[gnu::noinline]] int waitOn(pthread_cond_t* condition, pthread_mutex_t* guard, const timespec* deadline,
                             int cancelState, Leave leave) {
  struct OnCancel {
    pthread_mutex_t* guard;
    Leave leave;
    bool cancelled = true;
    ~OnCancel() {
      if (!cancelled) return;
      leave();
      (void)pthread_mutex_unlock(guard); // held by this thread
    }
  } onCancel{guard, leave};
  int type = PTHREAD_CANCEL_DEFERRED;
  // These fail only for states and types that do not exist.
  (void)pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, &type);
  (void)pthread_setcancelstate(cancelState, nullptr);
  const int result =
      deadline != nullptr ? pthread_cond_timedwait(condition, guard, deadline) : pthread_cond_wait(condition, guard);
  (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
  (void)pthread_setcanceltype(type, nullptr);
  onCancel.cancelled = false;
  return result;
}

} // namespace kr

#endif
