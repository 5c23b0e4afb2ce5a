// The command line of tevctl.
#ifndef TEV_CTL_OPTIONS_H
#define TEV_CTL_OPTIONS_H

#include "commands/CmdFunctor.h"

#include <string>

struct Options {
  enum class Action { run, batch, list, help };

  Action action = Action::run;
  bool json = false;
  bool keepGoing = false;
  double timeout = 0;      ///< seconds for the whole call; 0: none was given
  std::string timeoutText; ///< as it was given
  std::string batchFile;   ///< empty: standard input
  ArgVec words;            ///< of the command

  /// Reads the command line. Returns what is wrong with it; empty if nothing is. The options in front of the wrong one
  /// then have been read.
  std::string read(int argc, const char* const* argv);

  static const char* const helpText;
};

#endif
