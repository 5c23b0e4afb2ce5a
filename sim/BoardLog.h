// The board's log: one line per event.
#ifndef TEV_SIM_BOARDLOG_H
#define TEV_SIM_BOARDLOG_H

#include "platform/Descriptor.h"

#include <string>
#include <string_view>
#include <vector>

namespace sim {

/// Returns "HH:MM:SS.mmm" in local time, or an empty string if local time is unknown.
std::string timeOfDay();

class BoardLog {
public:
  explicit BoardLog(bool withTimes = false) : _withTimes(withTimes) {}

  /// Also writes later lines to `file`, which must be open for appending. After the first failed write, which is
  /// reported on standard error, the log no longer uses that file.
  void addFile(kr::Descriptor file) { _files.push_back(std::move(file)); }

  /// Writes one line to every file before it returns.
  void add(std::string_view line);

private:
  std::vector<kr::Descriptor> _files;
  bool _withTimes;
};

} // namespace sim

#endif
