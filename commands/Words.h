// The rules that the commands share for the words of their lines.
#ifndef TEV_COMMANDS_WORDS_H
#define TEV_COMMANDS_WORDS_H

#include "commands/CmdFunctor.h"

#include <string>
#include <string_view>

/// Splits a line on blanks and tabs into `words`, which is cleared first. There is no quoting; every other character,
/// a carriage return included, belongs to a word.
void splitLine(const std::string& line, ArgVec& words);

/// Whether the line asks for the current state: it holds only the key, or word 1 is "status" or "?".
[[nodiscard]] bool isQuery(const ArgVec& args);

/// Whether `word` is one of those in `accepted`, which have a '|' between them.
[[nodiscard]] bool isOneOf(std::string_view word, std::string_view accepted);

/// Reports that the words are not accepted, and prints `line` about it.
void printWrongWords(std::string_view line);

/// Prints the error line and the usage line of a command whose words are not accepted. `pattern` is what may follow the
/// key.
void printIncorrectParameters(std::string_view key, std::string_view pattern);

/// Prints the error line for a first word that names no subcommand.
void printUnsupportedSubcommand(std::string_view word);

/// The word as a number by atoi's rules, except that it is cut to the range of an int where atoi leaves that open.
[[nodiscard]] int wordToInt(const std::string& word);

#endif
