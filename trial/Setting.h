#ifndef TEV_TRIAL_SETTING_H
#define TEV_TRIAL_SETTING_H

#include <functional>
#include <set>
#include <string>

namespace trial {

/// A setting of the board: all values that it may have, as far as can be known.
class Setting {
public:
  /// Anything from `first` to `last`.
  Setting(int first, int last);

  void set(int value) { _possible = {value}; }
  void forget() { _possible = _all; }

  /// Whether `answer` is what `text` makes of a possible value. If so and `learn`, the others are not possible any
  /// more.
  bool matches(const std::string& answer, const std::function<std::string(int)>& text, bool learn);

  /// What `text` makes of a possible value.
  std::string example(const std::function<std::string(int)>& text) const { return text(*_possible.begin()); }

private:
  std::set<int> _all;
  std::set<int> _possible;
};

} // namespace trial

#endif
