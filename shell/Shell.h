// The prompt loop.
#ifndef TEV_SHELL_SHELL_H
#define TEV_SHELL_SHELL_H

#include "shell/CmdHistory.h"

#include <iosfwd>
#include <string>

/// "tev-cli> ".
extern const char* const prompt;

/// The line that an empty line runs again. Main thread only.
extern CmdHistory history;

/// Prompts, reads lines of at most 127 characters and runs them with the commands of gCmdMap, until a read fails: at
/// the end of the input, or at a line of 128 characters or more. One prompt goes to `out`, flushed, before every read.
void runPromptLoop(std::istream& in, std::ostream& out);

#endif
