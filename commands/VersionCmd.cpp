#include "commands/VersionCmd.h"

#include "commands/Console.h"
#include "commands/Report.h"

#include <iostream>

namespace {
constexpr std::string_view label = "firmware version: ";
constexpr std::string_view line = "firmware version: v2.1.112";
} // namespace

bool VersionCmd::operator()(const ArgVec&) {
  Report::present->text("version", line.substr(label.size()));
  printLine(std::cerr, line);
  return false;
}

const char* VersionCmd::getkey() { return "version"; }

const char* VersionCmd::getlong() {
  return "  syntax:  version\n"
         "\n"
         "  description:\n"
         "    Displays the firmware version of the product.\n"
         "\n"
         "  example:\n"
         "    tev-cli> version \n";
}

const char* VersionCmd::getshort() { return "displays the firmware version"; }
