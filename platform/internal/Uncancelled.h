// Work that a cancelled thread must finish.
//
// Threads of this library can be cancelled asynchronously: pthread_cancel may end them between any two instructions.
// Two things follow for code that such a thread runs while it holds a lock, allocates or touches a stream:
//
//  - cancellation must be disabled for the whole stretch, or the lock is left behind;
//  - the frames that run while cancellation is enabled must own nothing with a destructor. The unwinder finds no
//    clean-up entry for an instruction that is not a call, and ends the process where it expects one.
//
// uncancelled() gives both: the frame that switches cancellation off and on again owns nothing, and the work with its
// destructors runs in a frame of its own that exists only while cancellation is off. So a function that a cancellable
// thread may call consists of nothing but `return uncancelled([&] { ... });`.
//
// The thread sanitizer puts clean-up code into every function: there, cancellation must find the thread in a call.
#ifndef TEV_PLATFORM_UNCANCELLED_H
#define TEV_PLATFORM_UNCANCELLED_H

#include "platform/internal/CancelAnywhere.h"
#include "platform/krTime.h"

#include <cstddef>
#include <pthread.h>
#include <type_traits>

/// For functions whose frames a cancellation unwinds, if they have variables in memory: the address sanitizer does not
/// learn that such a frame is gone, and would report the next use of that piece of stack.
#if defined(__SANITIZE_ADDRESS__)
#define KR_UNWOUND_BY_CANCELLATION __attribute__((noinline, no_sanitize("address")))
#else
#define KR_UNWOUND_BY_CANCELLATION
#endif

namespace kr {

/// Disables cancellation on the calling thread and returns how it was. Nests, and costs next to nothing where
/// cancellation is already disabled. The type changes with the state: a cancellation that was sent while it was still
/// enabled arrives as a signal a moment later, and the C library then looks at the type alone.
struct CancelSetting {
  int type;
  int state;
};

inline CancelSetting disableCancellation() {
  CancelSetting before = {PTHREAD_CANCEL_DEFERRED, PTHREAD_CANCEL_ENABLE};
  // Both calls fail only for values that do not exist.
  (void)pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, &before.type);
  (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before.state);
  return before;
}

/// Takes back disableCancellation. A cancellation that arrived meanwhile takes effect here, if it is enabled again.
inline void restoreCancellation(const CancelSetting& before) {
  (void)pthread_setcancelstate(before.state, nullptr);
  (void)pthread_setcanceltype(before.type, nullptr);
}

template <class Work>
[[gnu::noinline]] auto uncancelledBody(Work& work, int before) {
  if constexpr (std::is_invocable_v<Work, int>)
    return work(before);
  else
    return work();
}

/// Runs `work` with cancellation disabled and returns its result, which must be trivially destructible. `work` must not
/// throw; it may take an int, the state (PTHREAD_CANCEL_) it was called in, so that it can block in it. Nests. A
/// cancellation that arrived meanwhile takes effect when the outermost call returns.
template <class Work>
KR_UNWOUND_BY_CANCELLATION inline auto uncancelled(Work work) {
  static_assert(std::is_trivially_destructible_v<Work>, "capture by reference or by trivial value");
  using Result = decltype(uncancelledBody(work, 0));
  const CancelSetting before = disableCancellation();
  if constexpr (std::is_void_v<Result>) {
    uncancelledBody(work, before.state);
    restoreCancellation(before);
  } else {
    static_assert(std::is_trivially_destructible_v<Result>);
    const Result result = uncancelledBody(work, before.state);
    restoreCancellation(before);
    return result;
  }
}

#if defined(__SANITIZE_ADDRESS__)
extern "C" void __asan_unpoison_memory_region(const volatile void* address, size_t size);
#endif

/// Begins code that runs on a thread that has been cancelled: the address sanitizer does not see the unwinding, and
/// takes the frames below, which are gone, for alive.
inline void afterUnwinding() {
#if defined(__SANITIZE_ADDRESS__)
  constexpr size_t deepEnough = 32 * 1024;
  const char* const here = static_cast<const char*>(__builtin_frame_address(0));
  __asan_unpoison_memory_region(here - deepEnough, deepEnough);
#endif
}

/// Does its work when the thread is cancelled while the object lives, unless disarmed.
template <class Work>
struct OnCancel {
  Work work;
  bool armed = true;
  ~OnCancel() {
    if (!armed) return;
    afterUnwinding();
    work();
  }
};
template <class Work>
OnCancel(Work) -> OnCancel<Work>;

/// In place of a state: cancellation has not been switched off, and is deferred.
constexpr int asItIs = -1;

/// The way back, for the point where uncancelled work blocks: runs `wait` open to cancellation, as far as `state`
/// allows it (the one that uncancelled() hands over). Cancellation is deferred meanwhile, so that it arrives only
/// inside calls that are cancellation points. There the unwinder knows its way, and the frames from here on outwards
/// may own things with destructors.
template <class Wait>
[[gnu::noinline]] auto cancellable(int state, Wait wait) {
  OnCancel onCancel{[] {}}; // prepares the stack for the destructors of the frames outwards
  if (state == asItIs) {
    const auto result = wait();
    onCancel.armed = false;
    return result;
  }
  int type = PTHREAD_CANCEL_DEFERRED;
  const WayOut wayOutBefore = setWayOut(nullptr);
  // These fail only for states and types that do not exist.
  (void)pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, &type);
  (void)pthread_setcancelstate(state, nullptr);
  const auto result = wait();
  (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
  (void)pthread_setcanceltype(type, nullptr);
  (void)setWayOut(wayOutBefore);
  onCancel.armed = false;
  return result;
}

/// Sleeps for a millisecond and then gives way to a cancellation. A thread that wakes every millisecond would often be
/// cancelled on the way out of its sleep, which not every unwinder knows.
inline void pollPause(int state) {
  // An interrupted sleep is a short one.
  (void)krThreadSuspend(1);
  (void)cancellable(state, [] {
    pthread_testcancel();
    return 0;
  });
}

/// Set on every thread of this library before its cancellation becomes asynchronous. A thread made by other means keeps
/// the deferred type, with which every thread starts, while it calls this library.
inline thread_local bool asynchronousThread = false;

/// uncancelled() for work that contains no cancellation point: only an asynchronously cancellable thread pays for it.
/// Switching cancellation off and on costs as much as a free mutex. Where the work does block it does so in
/// cancellable(), with the state it is given. The work's result must be trivially destructible.
template <class Work>
inline auto uncancelledIfAsynchronous(Work work) {
  if (asynchronousThread) return uncancelled(work);
  return uncancelledBody(work, asItIs);
}

} // namespace kr

#endif
