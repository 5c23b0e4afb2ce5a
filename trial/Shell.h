// The shell as a trial sees it: a process that is typed to and that answers.
#ifndef TEV_TRIAL_SHELL_H
#define TEV_TRIAL_SHELL_H

#include "trial/Child.h"

namespace trial {

class Shell : private Child {
public:
  /// Starts the words, with NAME=VALUE added to the environment. Throws std::system_error.
  explicit Shell(Strings words, Strings environment = {})
      : Child(std::move(words), Streams::inputAndOutput, std::move(environment)) {}

  enum class State { prompting, ended, silent };

  /// Types a line. Does nothing when the shell has ended.
  void type(const std::string& line) const { Child::type(line + '\n'); }

  /// Waits for the next prompt. `*text` is what was printed before it, on both streams, without what the start of the
  /// shell's task prints from two threads at any moment.
  State awaitPrompt(std::string* text);

  /// Ends the input and waits for the end of the shell. Its exit status, 128 + n for signal n.
  int end();

  using Child::pid;
};

} // namespace trial

#endif
