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
#ifndef TEV_PLATFORM_UNCANCELLED_H
#define TEV_PLATFORM_UNCANCELLED_H

#include <pthread.h>
#include <type_traits>

/// For functions whose frames a cancellation unwinds, if they have variables in memory: the address sanitizer does not
/// learn that such a frame is gone, and would report the next use of that piece of stack.
#define KR_UNWOUND_BY_CANCELLATION __attribute__((no_sanitize("address")))

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
[[gnu::noinline]] auto uncancelledBody(Work& work) {
  return work();
}

/// Runs `work` with cancellation disabled and returns its result, which must be trivially destructible. `work` must not
/// throw. Nests. A cancellation that arrived meanwhile takes effect when the outermost call returns.
template <class Work>
KR_UNWOUND_BY_CANCELLATION inline auto uncancelled(Work work) {
  static_assert(std::is_trivially_destructible_v<Work>, "capture by reference or by trivial value");
  const CancelSetting before = disableCancellation();
  if constexpr (std::is_void_v<decltype(work())>) {
    uncancelledBody(work);
    restoreCancellation(before);
  } else {
    auto result = uncancelledBody(work);
    static_assert(std::is_trivially_destructible_v<decltype(result)>);
    restoreCancellation(before);
    return result;
  }
}

} // namespace kr

#endif
