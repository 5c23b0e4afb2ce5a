// The remembered command line.
#ifndef TEV_SHELL_CMDHISTORY_H
#define TEV_SHELL_CMDHISTORY_H

#include <deque>
#include <string>

/// A history that always holds exactly one line, at first the empty one. Not thread-safe.
class CmdHistory {
public:
  CmdHistory();
  CmdHistory(const CmdHistory&) = default;
  CmdHistory& operator=(const CmdHistory&) = default;
  virtual ~CmdHistory() = default;

  /// Remembers `line`, also an empty one, in place of the one before.
  void add(const std::string& line);

  /// The line remembered last.
  std::string last() const;

private:
  std::deque<std::string> _lines; ///< newest at the front
};

#endif
