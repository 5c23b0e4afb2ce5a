// Printing on the console.
#ifndef TEV_COMMANDS_CONSOLE_H
#define TEV_COMMANDS_CONSOLE_H

#include <iosfwd>
#include <string>
#include <string_view>

/// Writes `text` in one piece and flushes. What the console does not take is lost, but nothing that comes later.
void print(std::ostream& out, std::string_view text);

/// The same for `text` and a newline.
void printLine(std::ostream& out, std::string_view text);

/// Opens closed standard descriptors on /dev/null. Call before anything opens a file: it would get their numbers, and
/// console text would end up in that file, or worse, in the reply pipe.
void fillStandardDescriptors();

/// Makes the standard descriptors block: clears O_NONBLOCK, which others may have set on a console that they share.
/// Returns a bit for each descriptor that did not block (1 << descriptor). What cannot be changed stays as it is.
unsigned waitForConsole();

/// Sets O_NONBLOCK again on the descriptors of such bits.
void stopWaitingForConsole(unsigned descriptors);

#endif
