#include "commands/MacCmd.h"

#include "commands/BoardTool.h"
#include "commands/Console.h"

#include <iostream>

bool MacCmd::operator()(const ArgVec& args) {
  if (args.size() > 1) {
    if (!runBoardTool("/mnt/tev/sys/bin/eeprom-write-macs-arm-none", args[1]))
      printLine(std::cerr, "error: cannot write mac address to persistent storage");
  } else if (!runBoardTool("/mnt/tev/sys/bin/eeprom-read-macs-arm-none")) {
    printLine(std::cerr, "error: cannot read mac address from persistent storage");
  }
  return false;
}

const char* MacCmd::getkey() { return "mac"; }

const char* MacCmd::getlong() {
  return "  syntax:  mac [<mac-address>]\n"
         "\n"
         "  description:\n"
         "    To GET the mac address, just enter 'mac'.\n"
         "    To SET the mac address, enter 'mac <mac-address>'.\n"
         "\n"
         "  examples:\n"
         "    tev-cli> mac\n"
         "    tev-cli> mac 02:1A:2B:3C:4D:01\n";
}

const char* MacCmd::getshort() { return "get/set the mac address"; }
