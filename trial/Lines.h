// Lines to type into the shell, at random.
#ifndef TEV_TRIAL_LINES_H
#define TEV_TRIAL_LINES_H

#include <random>
#include <string>

namespace trial {

struct Line {
  std::string text;  ///< at most 127 bytes
  bool asks = false; ///< sends a request and waits for its reply
};

/// The same seed gives the same lines.
class Lines {
public:
  explicit Lines(unsigned seed) : _engine(seed) {}

  /// A line of any kind but `exit`; with `asking` one that asks a service.
  Line next(bool asking);

  unsigned below(unsigned limit) { return static_cast<unsigned>(_engine() % limit); }
  /// `length` bytes of which none is zero, a blank or the end of a line.
  std::string word(size_t length);

private:
  std::mt19937 _engine;
};

} // namespace trial

#endif
