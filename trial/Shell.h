// The shell as a trial sees it: a process that is typed to and that answers.
#ifndef TEV_TRIAL_SHELL_H
#define TEV_TRIAL_SHELL_H

#include "trial/Child.h"

#include <string>

namespace trial {

class Shell {
public:
  /// Starts `program`, with NAME=VALUE added to its environment. Throws std::system_error.
  explicit Shell(const std::string& program, Words environment = {});

  enum class State { prompting, ended, silent };

  /// Types a line. An ended shell does not care.
  void type(const std::string& line) { _child.type(line + '\n'); }

  /// Waits for the next prompt. `*text` is what was printed before it, on both streams, without what the start of the
  /// shell's task prints from two threads at any moment.
  State awaitPrompt(std::string* text);

  /// Ends the input and waits for the end of the shell. Its exit status, 128 + n for signal n.
  int end(std::string* text);

  pid_t pid() const { return _child.pid(); }

private:
  Child _child;
};

} // namespace trial

#endif
