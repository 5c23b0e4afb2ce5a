// The rules that the commands share for the words of their lines.
#ifndef TEV_COMMANDS_WORDS_H
#define TEV_COMMANDS_WORDS_H

#include "shell/CmdFunctor.h"

#include <initializer_list>
#include <string>

/// Whether the line asks for the current state: it holds only the key, or word 1 is "status" or "?".
bool isQuery(const ArgVec& args);

bool isOneOf(const std::string& word, std::initializer_list<const char*> accepted);

/// Prints the error line and the usage line of a command whose words are not accepted. `pattern` is what may follow the
/// key.
void printIncorrectParameters(const std::string& key, const std::string& pattern);

#endif
