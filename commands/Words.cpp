#include "commands/Words.h"

#include "commands/Console.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <iostream>

bool isQuery(const ArgVec& args) { return args.size() == 1 || isOneOf(args[1], {"status", "?"}); }

bool isOneOf(std::string_view word, std::initializer_list<const char*> accepted) {
  return std::any_of(accepted.begin(), accepted.end(), [word](const char* candidate) { return word == candidate; });
}

void printIncorrectParameters(std::string_view key, std::string_view pattern) {
  printLine(std::cerr, "error: incorrect parameter(s) to <" + std::string(key) + "> command");
  printLine(std::cerr, "usage: " + std::string(key) + " " + std::string(pattern));
}

void printUnsupportedSubcommand(std::string_view word) {
  printLine(std::cerr, "error: subcmd [" + std::string(word) + "] is not supported.");
}

int wordToInt(const std::string& word) {
  const long long value = std::strtoll(word.c_str(), nullptr, 10);
  return static_cast<int>(std::clamp<long long>(value, INT_MIN, INT_MAX));
}
