#include "commands/SerialNumberCmd.h"

#include "commands/BoardTool.h"
#include "commands/Console.h"

#include <iostream>

bool SerialNumberCmd::operator()(const ArgVec& args) {
  if (args.size() == 2) { // a line with further words reads
    if (!runBoardTool("/mnt/tev/sys/bin/eeprom-write-serialnum-arm-none", args[1]))
      printLine(std::cerr, "error: cannot write new serial number to persistent storage");
  } else if (!runBoardTool("/mnt/tev/sys/bin/eeprom-read-serialnum-arm-none")) {
    printLine(std::cerr, "error: cannot read serial number from persistent storage");
  }
  return false;
}

const char* SerialNumberCmd::getkey() { return "serialnum"; }

const char* SerialNumberCmd::getlong() {
  return "  syntax:  serialnum [<serial#>]\n"
         "\n"
         "  description:\n"
         "    To GET the serial number, just enter 'serialnum'.\n"
         "    To SET the serial number, enter 'serialnum <serial#>'\n"
         "      where 'serial#' has a max length of 16 characters.\n"
         "\n"
         "  examples:\n"
         "    tev-cli> serialnum\n"
         "    tev-cli> serialnum 480213UNIT654321\n";
}

const char* SerialNumberCmd::getshort() { return "get/set the serial number"; }
