#include "trial/Setting.h"

#include <algorithm>
#include <iterator>

namespace trial {

Setting::Setting(int first, int last) {
  for (int value = first; value <= last; ++value)
    _all.insert(value);
  _possible = _all;
}

bool Setting::matches(const std::string& answer, const std::function<std::string(int)>& text, bool learn) {
  std::set<int> left;
  std::copy_if(_possible.begin(), _possible.end(), std::inserter(left, left.end()),
               [&](int value) { return text(value) == answer; });
  if (left.empty()) return false;
  if (learn) _possible = left;
  return true;
}

} // namespace trial
