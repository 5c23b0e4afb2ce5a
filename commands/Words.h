// The rules that the commands share for the words of their lines.
#ifndef TEV_COMMANDS_WORDS_H
#define TEV_COMMANDS_WORDS_H

#include "commands/CmdFunctor.h"

#include <initializer_list>
#include <string>

/// Whether the line asks for the current state: it holds only the key, or word 1 is "status" or "?".
bool isQuery(const ArgVec& args);

bool isOneOf(const std::string& word, std::initializer_list<const char*> accepted);

/// Prints the error line and the usage line of a command whose words are not accepted. `pattern` is what may follow the
/// key.
void printIncorrectParameters(const std::string& key, const std::string& pattern);

/// Prints the error line for a first word that names no subcommand.
void printUnsupportedSubcommand(const std::string& word);

/// The word as a number by atoi's rules, except that it is cut to the range of an int where atoi leaves that open.
int wordToInt(const std::string& word);

#endif
