#ifndef TEV_CTL_CALLER_H
#define TEV_CTL_CALLER_H

#include "commands/CmdFunctor.h"
#include "commands/Form.h"
#include "ctl/CallReport.h"
#include "ctl/Options.h"

#include <cstdio>
#include <map>

/// Runs commands and prints what became of them. There is one in the process, because there is one report.
class Caller {
public:
  explicit Caller(const Options& options);
  ~Caller();
  Caller(const Caller&) = delete;
  Caller& operator=(const Caller&) = delete;

  /// Runs one command with these words and prints the outcome: on standard output the lines of one that is done, or in
  /// any case a JSON object; on standard error a line for one that is not done. `line` is its number in a batch, or 0.
  ExitStatus run(const ArgVec& words, unsigned line = 0);

  /// Runs the lines of `in`, split like those of the console, until one is not done; with the option also those behind
  /// it. Empty ones and those that begin with # are skipped. Returns the status of the first that was not done.
  ExitStatus runBatch(FILE* in);

  /// Prints all forms of all commands, one in a line, and whether each only reads.
  ExitStatus list();

  /// Print the outcome of a call that is about no command: its options are wrong, or the system refused `what`.
  ExitStatus wrongOptions(const std::string& reason);
  ExitStatus systemFailed(const std::string& what, int reason);

private:
  void begin(const std::string& command, unsigned line);
  void runCommand(CmdFunctor& command, const ArgVec& words, std::string& printed);
  ExitStatus print(const std::string& printed);
  std::string usage(const CmdMap::value_type& command) const;

  const Options& _options;
  CmdMap _commands;
  std::map<std::string, Forms> _forms;
  CallReport _report;
  Report* const _reportBefore;
  unsigned _line = 0;
};

#endif
