#ifndef TEV_CTL_CALLREPORT_H
#define TEV_CTL_CALLREPORT_H

#include "commands/Report.h"
#include "ctl/ExitStatus.h"

#include <string>

/// What becomes of one command after the other. Of several failures of a command, the first counts.
class CallReport : public Report {
public:
  /// Before a command: forgets the one before. `command` is its key, empty if there is none; `line` its number in a
  /// batch, 0 if there is none.
  void begin(const std::string& command, unsigned line);

  ExitStatus status() const { return _status; }

  /// What went wrong, in words.
  const std::string& reason() const { return _reason; }

  /// What board tools printed.
  const std::string& toolOutput() const { return _toolOutput; }

  /// All of it as a JSON object, in one line. The texts in it are the bytes that the system gave: one beyond ASCII is
  /// written as the character with its number.
  std::string json() const;

  /// Notes a failure. `code` is the number that came with it, under the name "errno" or "status"; none if the name is
  /// null. `reason` is what went wrong, in words, without a line end; `subject` the path, service, word or
  /// command that it is about.
  void fail(ExitStatus status, std::string_view subject, const std::string& reason, const char* codeName = nullptr,
            int code = 0);

  void number(std::string_view name, int value) override;
  void flag(std::string_view name, bool value) override;
  void text(std::string_view name, std::string_view value) override;
  void wrongWords() override;
  void notThere(std::string_view what) override;
  void systemFailed(std::string_view path, int reason) override;
  bool toolStarts() override;
  void toolEnded(std::string_view tool, int status) override;

private:
  void addValue(std::string_view name, const std::string& json);

  std::string _command;
  unsigned _line = 0;
  ExitStatus _status = exitDone;
  std::string _values, _subject, _code, _reason, _toolOutput;
  int _toolFile = -1, _standardOutput = -1, _standardError = -1; // while a tool runs
};

#endif
