#include "shell/CmdHistory.h"

CmdHistory::CmdHistory() : _lines(1) {}

void CmdHistory::add(const std::string& line) {
  if (_lines.size() == 1) _lines.pop_back();
  _lines.push_front(line);
}

std::string CmdHistory::last() const { return _lines.front(); }
