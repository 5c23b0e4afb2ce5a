// A shell on a board: what it prints, what its trace log says about its requests, and what it takes up.
#ifndef TEV_TRIAL_CONSOLE_H
#define TEV_TRIAL_CONSOLE_H

#include "platform/internal/Descriptor.h"
#include "trial/Shell.h"

#include <map>
#include <string>
#include <vector>

namespace trial {

/// What came of a line.
struct Answer {
  Shell::State state = Shell::State::prompting;
  std::string text = {};
  // From the trace log:
  unsigned requests = 0;
  bool timedOut = false, tooShort = false;
  unsigned drained = 0;                ///< stale bytes were found before a request was sent
  unsigned undecoded = 0;              ///< messages came to the shell that it cannot decode
  std::string type = {};               ///< the line that shows the type of the reply; empty for none
  std::vector<std::string> other = {}; ///< lines that should not be there
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

  /// A process in the board's namespaces.
  pid_t board() const { return _board; }
  /// Gives back the memory of all but the ends of the board's logs, which would fill the machine's.
  void cutLogs() const;
  /// Memory of the shell on this board, in KiB, and descriptors.
  std::map<std::string, long> use() const;

private:
  pid_t _board;
  std::string _root; // of the board's files
  kr::Descriptor _trace;
  off_t _at = 0;
  std::string _rest = {}; // a line's beginning
};

} // namespace trial

#endif
