#include "commands/Words.h"

#include "commands/Console.h"
#include "commands/Report.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <iostream>

void splitLine(const std::string& line, ArgVec& words) {
  constexpr const char* delimiters = " \t";
  words.clear();
  size_t start = line.find_first_not_of(delimiters);
  while (start != std::string::npos) {
    const size_t end = line.find_first_of(delimiters, start);
    words.push_back(line.substr(start, end - start));
    start = line.find_first_not_of(delimiters, end);
  }
}

bool isQuery(const ArgVec& args) { return args.size() == 1 || isOneOf(args[1], "status|?"); }

bool isOneOf(std::string_view word, std::string_view accepted) {
  for (size_t start = 0; start <= accepted.size();) {
    const size_t end = std::min(accepted.find('|', start), accepted.size());
    if (accepted.substr(start, end - start) == word) return true;
    start = end + 1;
  }
  return false;
}

void printWrongWords(std::string_view line) {
  Report::present->wrongWords();
  printLine(std::cerr, line);
}

void printIncorrectParameters(std::string_view key, std::string_view pattern) {
  printWrongWords("error: incorrect parameter(s) to <" + std::string(key) + "> command");
  printLine(std::cerr, "usage: " + std::string(key) + " " + std::string(pattern));
}

void printUnsupportedSubcommand(std::string_view word) {
  printWrongWords("error: subcmd [" + std::string(word) + "] is not supported.");
}

int wordToInt(const std::string& word) {
  const long long value = std::strtoll(word.c_str(), nullptr, 10);
  return static_cast<int>(std::clamp<long long>(value, INT_MIN, INT_MAX));
}
