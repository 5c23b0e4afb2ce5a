// Printing on the console.
#ifndef TEV_COMMANDS_CONSOLE_H
#define TEV_COMMANDS_CONSOLE_H

#include <iosfwd>
#include <string>

/// Writes `text` in one piece and flushes. What the console does not take is lost, but nothing that comes later.
void print(std::ostream& out, const std::string& text);

/// The same for `text` and a newline.
void printLine(std::ostream& out, const std::string& text);

#endif
