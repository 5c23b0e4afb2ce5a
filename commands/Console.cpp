#include "commands/Console.h"

#include <ostream>

void printLine(std::ostream& out, const std::string& text) { out << text + '\n' << std::flush; }
