// Printing on the console.
#ifndef TEV_COMMANDS_CONSOLE_H
#define TEV_COMMANDS_CONSOLE_H

#include <iosfwd>
#include <string>

/// Writes `text` and a newline in one piece and flushes.
void printLine(std::ostream& out, const std::string& text);

#endif
