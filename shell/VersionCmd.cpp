#include "shell/VersionCmd.h"

#include "commands/Console.h"

#include <iostream>

bool VersionCmd::operator()(const ArgVec&) {
  printLine(std::cerr, "firmware version: v2.1.112");
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
