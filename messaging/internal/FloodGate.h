// Keeps a flood of messages that cannot be decoded from filling the memory file system of the trace log.
#ifndef TEV_MESSAGING_FLOODGATE_H
#define TEV_MESSAGING_FLOODGATE_H

#include <algorithm>
#include <cstdint>
#include <utility>

/// Says which of many equal events get a line in a log: the first `burst` at once and, for each second that passes, one
/// more. Used by one thread.
class FloodGate {
public:
  static constexpr int64_t burst = 10'000; ///< lines; of 72 bytes, less than a megabyte

  /// Asks for one line at the time `now`, in seconds that never go back.
  bool passes(int64_t now) {
    if (_left < burst) _left += std::min(now - _asked, burst - _left);
    _asked = now;
    if (_left == 0) {
      ++_held;
      return false;
    }
    --_left;
    return true;
  }

  /// How many were held back since this was last asked.
  long takeHeld() { return std::exchange(_held, 0); }

private:
  int64_t _left = burst;
  int64_t _asked = 0;
  long _held = 0;
};

#endif
