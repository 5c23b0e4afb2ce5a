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

namespace kr {

template <class Work>
[[gnu::noinline]] auto uncancelledBody(Work& work) {
  return work();
}

/// Runs `work` with cancellation disabled and returns its result, which must be trivially destructible. `work` must not
/// throw. Nests. A cancellation that arrived meanwhile takes effect when the outermost call returns.
template <class Work>
inline auto uncancelled(Work work) {
  static_assert(std::is_trivially_destructible_v<Work>, "capture by reference or by trivial value");
  int before = PTHREAD_CANCEL_ENABLE;
  // pthread_setcancelstate fails only for a state that does not exist.
  (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before);
  if constexpr (std::is_void_v<decltype(work())>) {
    uncancelledBody(work);
    (void)pthread_setcancelstate(before, nullptr);
  } else {
    auto result = uncancelledBody(work);
    static_assert(std::is_trivially_destructible_v<decltype(result)>);
    (void)pthread_setcancelstate(before, nullptr);
    return result;
  }
}

} // namespace kr

#endif
