#include "commands/VersionCmd.h"

#include "commands/Console.h"
#include "commands/Report.h"

#include <iostream>

namespace {
constexpr const char* version = "v2.1.112";
}

bool VersionCmd::operator()(const ArgVec&) {
  Report::present->text("version", version);
  printLine(std::cerr, std::string("firmware version: ") + version);
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
