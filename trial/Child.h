// A program that runs as a child process, whose input and output are pipes or a terminal.
#ifndef TEV_TRIAL_CHILD_H
#define TEV_TRIAL_CHILD_H

#include "platform/Descriptor.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace trial {

using Strings = std::vector<std::string>;

/// Failures of the system are thrown as std::system_error.
class Child {
public:
  /// Which of its standard streams are pipes to this process, or a terminal of its own. The others are inherited.
  enum class Streams { none, output, inputAndOutput, terminal };

  /// Starts the program with these words, and NAME=VALUE added to its environment. Both output streams are one.
  Child(Strings words, Streams streams, Strings environment = {});
  /// Kills a program that has not been waited for.
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  /// Writes to its input. Has no effect on a program that has ended.
  void type(const std::string& text) const;
  void endInput() { (void)_in.close(); } // a failure has no effect on what follows

  enum class Came { text, end, nothing };

  /// Waits up to `longest` milliseconds for more of its output, and adds that to what is unread.
  Came readMore(int longest = 60'000);

  /// Reads to the end of `text`, without it to the end of all output. Throws std::runtime_error if that does not come.
  std::string readTo(const std::string& text = "");

  void send(int signal) const;
  pid_t pid() const { return _pid; }

  /// Waits for its end. Its exit status, 128 + n for signal n.
  int wait();

  std::string unread; ///< read and not looked at yet

private:
  pid_t _pid = -1;
  kr::Descriptor _in, _out;
};

} // namespace trial

#endif
