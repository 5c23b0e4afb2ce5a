// The shell as a trial sees it: a process that is typed to and that answers.
#ifndef TEV_TRIAL_SHELL_H
#define TEV_TRIAL_SHELL_H

#include <string>
#include <sys/types.h>

namespace trial {

class Shell {
public:
  /// Starts `program` with `environment` (NAME=VALUE, empty for none) added. Throws std::system_error.
  explicit Shell(const std::string& program, const std::string& first = "", const std::string& second = "");
  /// Kills a shell that has not ended.
  ~Shell();
  Shell(const Shell&) = delete;
  Shell& operator=(const Shell&) = delete;

  enum class State { prompting, ended, silent };

  /// Types a line. An ended shell does not care.
  void type(const std::string& line);

  /// Waits for the next prompt. `*text` is what was printed before it, on both streams, without what the start of the
  /// shell's task prints from two threads at any moment.
  State awaitPrompt(std::string* text);

  /// Ends the input and waits for the end of the shell. Its exit status, 128 + n for signal n.
  int end(std::string* text);

  pid_t pid() const { return _pid; }

private:
  State readMore();

  pid_t _pid = -1;
  int _in = -1;
  int _out = -1;
  std::string _read; // and not looked at yet
};

} // namespace trial

#endif
