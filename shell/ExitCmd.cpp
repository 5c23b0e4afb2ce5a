#include "shell/ExitCmd.h"

#include "commands/Console.h"
#include "messaging/CommObj.h"

#include <cstdlib>
#include <iostream>
#include <unistd.h>

bool ExitCmd::operator()(const ArgVec&) {
  printLine(std::cerr, "tev-cli: exiting...");
  CommObj::StopAll();
  (void)sleep(1); // what is left of it when a signal ends it early does not matter
  std::exit(0);
}

const char* ExitCmd::getkey() { return "exit"; }

const char* ExitCmd::getlong() {
  return "  syntax:  exit\n"
         "\n"
         "  description:\n"
         "    Exits this CLI application.\n"
         "\n"
         "  example:\n"
         "    tev-cli> exit \n";
}

const char* ExitCmd::getshort() { return "exits the cli application"; }
