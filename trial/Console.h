// A shell on a board: what it prints, what its trace log says about its requests, and what it takes up.
#ifndef TEV_TRIAL_CONSOLE_H
#define TEV_TRIAL_CONSOLE_H

#include "platform/Descriptor.h"
#include "trial/Shell.h"

#include <map>
#include <string>

namespace trial {

/// What came of a line.
struct Answer {
  /// What a line of the trace log reports. Lines that do not belong there are `unknown`.
  enum Event { none, request, timedOut, tooShort, drained, undecoded, unknown };

  Shell::State state = Shell::State::prompting;
  std::string text = {};
  unsigned events[unknown + 1] = {}; ///< how many of each are in the trace log
  std::string replyType = {};        ///< its line about the type of the last reply; empty for none
  std::string unknownLine = {};      ///< its last line that is unknown
};

class Console : public Shell {
public:
  /// Starts a shell and waits for its prompt: on this board, or with `sim`, the path of tev-sim, on one of its own
  /// whose services do not fail. Throws std::runtime_error.
  explicit Console(const std::string& program, const std::string& sim = "");

  /// Waits for the next prompt.
  Answer await();
  /// Adds what the trace log has got since the last look.
  void readTrace(Answer& answer);

  /// Gives back the memory of all but the ends of the board's logs, which would fill the machine's.
  void cutLogs() const;
  /// Memory of the shell on this board, in KiB, and descriptors.
  std::map<std::string, long> use() const;

private:
  pid_t _board;      // a process in its namespaces
  std::string _root; // of its files
  kr::Descriptor _trace;
  off_t _at = 0;
  std::string _rest = {}; // a line's beginning
};

} // namespace trial

#endif
