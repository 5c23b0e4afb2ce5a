#include "shell/CmdHistory.h"

CmdHistory::CmdHistory() : _lines(1) {}

void CmdHistory::add(const std::string& line) {
  _lines.push_front(line); // may throw; the line before is still there then
  if (_lines.size() > 1) _lines.pop_back();
}

std::string CmdHistory::last() const { return _lines.front(); }
