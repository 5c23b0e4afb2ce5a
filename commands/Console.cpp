#include "commands/Console.h"

#include <ostream>

void print(std::ostream& out, const std::string& text) {
  out.clear();
  out << text << std::flush;
}

void printLine(std::ostream& out, const std::string& text) { print(out, text + '\n'); }
