// Where sending waits.
//
// Sending runs with cancellation disabled, because it holds a lock and owns a message. But it can wait for as long as a
// queue is full, and a thread must be able to end meanwhile. So at these places the thread blocks open to cancellation,
// as far as its caller allows it: the caller of Send(), or for a handler, which an endpoint runs with cancellation
// disabled, the caller of the endpoint's run().
#ifndef TEV_MESSAGING_BLOCKING_H
#define TEV_MESSAGING_BLOCKING_H

#include "platform/internal/Uncancelled.h"

#include <pthread.h>

/// States for a scope in which cancellation state (PTHREAD_CANCEL_) the calling thread waits. The outermost scope of a
/// thread decides.
class BlockingState {
public:
  explicit BlockingState(int state) : _outermost(_state == undecided) {
    if (_outermost) _state = state;
  }
  ~BlockingState() {
    if (_outermost) _state = undecided;
  }
  BlockingState(const BlockingState&) = delete;
  BlockingState& operator=(const BlockingState&) = delete;

  /// Runs `wait`, a call that blocks and returns an int, in that state; outside all scopes, in the thread's own. A
  /// thread that is cancelled in it unwinds: the frames outwards may own things with destructors.
  template <class Wait>
  static int block(Wait wait) {
    return kr::cancellable(_state, wait);
  }

private:
  static constexpr int undecided = kr::asItIs;
  inline static thread_local int _state = undecided;

  const bool _outermost;
};

#endif
