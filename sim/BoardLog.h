// The board's log: one line for each event that reached the board.
#ifndef TEV_SIM_BOARDLOG_H
#define TEV_SIM_BOARDLOG_H

#include "platform/Descriptor.h"

#include <string>
#include <string_view>
#include <vector>

namespace sim {

/// "HH:MM:SS.mmm", local time; empty if there is none.
std::string timeOfDay();

class BoardLog {
public:
  explicit BoardLog(bool withTimes = false) : _withTimes(withTimes) {}

  /// From now on lines also go to `file`, which must have been opened for appending. The first failure to write is
  /// told on standard error; the log then goes on without that file.
  void addFile(kr::Descriptor file) { _files.push_back(std::move(file)); }

  /// Writes one line. It is complete in every file when the call returns.
  void add(std::string_view line);

private:
  std::vector<kr::Descriptor> _files;
  bool _withTimes;
};

} // namespace sim

#endif
