// Waiting for a turn, as the mutex and the semaphore do it. Both have the same four fields beside the thing itself:
//
//   wakeUp    condition on which those sleep who found the thing taken
//   guard     protects that sleep; a plain lock held for moments, so locking it cannot fail
//   deleted   set by the destroyer
//   waiters   threads between enter() and leave(); raised under the guard
//
// A free object costs its first try and, when it is given back, one look at `waiters`; guard and clock are not touched.
// Why no turn is missed: a waiter counts itself before it tries, and a giver reads the count after it has given; both
// by a change of that one word. If the waiter comes first, the giver sees it and broadcasts, for which it needs the
// guard, and that is free only once the waiter sleeps or has left. If the giver comes first, the giving happened before
// the waiter's try, which then finds the thing free or in the hands of a later taker, to whom the same applies.
#ifndef TEV_PLATFORM_WAIT_H
#define TEV_PLATFORM_WAIT_H

#include "platform/internal/Failure.h"
#include "platform/internal/Uncancelled.h"
#include "platform/krLock.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
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

/// Begins a wait: leaves the guard held.
template <class Object>
void enter(Object* object) {
  (void)pthread_mutex_lock(&object->guard);
  object->waiters.fetch_add(1, std::memory_order_acq_rel);
}

/// Ends it: gives the guard back. The destroyer waits for the last one.
template <class Object>
void leave(Object* object) {
  if (object->waiters.fetch_sub(1, std::memory_order_acq_rel) == 1 && object->deleted.load() != 0)
    (void)pthread_cond_broadcast(&object->wakeUp);
  (void)pthread_mutex_unlock(&object->guard);
}

/// Between the two: waits until `tryTake` returns 0, at most until `deadline` (without limit when null). `tryTake`
/// returns EBUSY when the thing is taken; any other value ends the wait. Returns 0, or KR_ERR_TIMEOUT, KR_ERR_INVALID
/// when the object is being destroyed, or another error number. Runs with cancellation disabled and sleeps in
/// `cancelState`; a thread cancelled there has left.
template <class Object, class TryTake>
int waitForTurn(Object* object, const timespec* deadline, int cancelState, TryTake tryTake) {
  OnCancel onCancel{[object] { leave(object); }};
  int error = 0;
  for (;;) {
    if (object->deleted.load() != 0) {
      error = KR_ERR_INVALID;
      break;
    }
    if (error == 0) error = tryTake();
    if (error != EBUSY) break;
    error = cancellable(cancelState, [=] {
      return deadline != nullptr ? pthread_cond_timedwait(&object->wakeUp, &object->guard, deadline)
                                 : pthread_cond_wait(&object->wakeUp, &object->guard);
    });
    if (error == ETIMEDOUT) error = KR_ERR_TIMEOUT;
  }
  onCancel.armed = false;
  return error;
}

/// Lets all waiters try again.
template <class Object>
[[gnu::noinline]] void wakeAll(Object* object) {
  (void)pthread_mutex_lock(&object->guard);
  (void)pthread_cond_broadcast(&object->wakeUp);
  (void)pthread_mutex_unlock(&object->guard);
}

/// After giving: the same, if anybody waits.
template <class Object>
void wakeWaiters(Object* object) {
  if (object->waiters.fetch_add(0, std::memory_order_acq_rel) != 0) wakeAll(object);
}

/// Destroys what the waiting consists of, after the last waiter has left. Runs with cancellation disabled.
template <class Object>
void endWaiting(Object* object) {
  (void)pthread_mutex_lock(&object->guard);
  object->deleted.store(1);
  (void)pthread_cond_broadcast(&object->wakeUp);
  while (object->waiters.load() != 0)
    (void)pthread_cond_wait(&object->wakeUp, &object->guard);
  (void)pthread_mutex_unlock(&object->guard);
  (void)pthread_mutex_destroy(&object->guard);
  (void)pthread_cond_destroy(&object->wakeUp);
}

} // namespace kr

#endif
