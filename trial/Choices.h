// Every way that a program with choices can take, one after another.
#ifndef TEV_TRIAL_CHOICES_H
#define TEV_TRIAL_CHOICES_H

#include <cstddef>
#include <vector>

namespace trial {

/// Run the program, which asks pick() whenever there is a choice; then again as long as nextWay() says so. Whatever
/// else the program does must follow from its choices.
class Choices {
public:
  /// 0 to `count` - 1.
  unsigned pick(unsigned count) {
    if (_at == _made.size()) _made.push_back({0, count});
    return _made[_at++].picked;
  }

  /// Goes back to the beginning of the next way. False after the last.
  bool nextWay() {
    _at = 0;
    while (!_made.empty() && _made.back().picked + 1 == _made.back().count)
      _made.pop_back();
    if (_made.empty()) return false;
    ++_made.back().picked;
    return true;
  }

  /// Goes back to the beginning of the same way.
  void again() { _at = 0; }

private:
  struct Choice {
    unsigned picked;
    unsigned count;
  };
  std::vector<Choice> _made;
  size_t _at = 0;
};

} // namespace trial

#endif
