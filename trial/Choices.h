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
    if (at_ == made_.size()) made_.push_back({0, count});
    return made_[at_++].picked;
  }

  /// Goes back to the beginning of the next way. False after the last.
  bool nextWay() {
    at_ = 0;
    while (!made_.empty() && made_.back().picked + 1 == made_.back().count)
      made_.pop_back();
    if (made_.empty()) return false;
    ++made_.back().picked;
    return true;
  }

  /// Goes back to the beginning of the same way.
  void again() { at_ = 0; }

private:
  struct Choice {
    unsigned picked;
    unsigned count;
  };
  std::vector<Choice> made_;
  size_t at_ = 0;
};

} // namespace trial

#endif
