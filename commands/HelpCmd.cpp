#include "commands/HelpCmd.h"

#include "commands/Console.h"
#include "commands/Report.h"

#include <cstring>
#include <iostream>

const char* const HelpCmd::indent = "  ";
const char* const HelpCmd::spacer = "                ";

namespace {

constexpr const char* dashRule = "-------------------------------------------------------------";
constexpr const char* hashRule = "#############################################################";

void printLongText(const std::string& key, CmdFunctor& command) {
  Report::present->text(key, command.getlong());
  printLine(std::cerr, key + ":\n");
  printLine(std::cerr, command.getlong());
}

} // namespace

HelpCmd::HelpCmd(const CmdMap& commands) : _commands(commands) {}

bool HelpCmd::operator()(const ArgVec& args) {
  const bool wordGiven = args.size() > 1;
  if (wordGiven && args[1] == "long") {
    printLongListing();
    return false;
  }
  const auto found = wordGiven ? _commands.find(args[1]) : _commands.end();
  if (found == _commands.end()) {
    if (wordGiven) Report::present->wrongWords();
    printShortListing();
    return false;
  }
  printLine(std::cerr, dashRule);
  printLongText(found->first, *found->second);
  printLine(std::cerr, dashRule);
  return false;
}

void HelpCmd::printShortListing() const {
  const size_t width = std::strlen(spacer);
  printLine(std::cerr, hashRule);
  for (const auto& [key, command] : _commands) {
    Report::present->text(key, command->getshort());
    const size_t pad = key.size() < width ? width - key.size() : 0;
    printLine(std::cerr, indent + key + std::string(pad + 1, ' ') + "- " + command->getshort());
  }
  printLine(std::cerr, hashRule);
}

void HelpCmd::printLongListing() const {
  printLine(std::cerr, hashRule);
  const char* separator = "";
  for (const auto& [key, command] : _commands) {
    printLine(std::cerr, separator);
    printLongText(key, *command);
    separator = dashRule;
  }
  printLine(std::cerr, hashRule);
}

const char* HelpCmd::getkey() { return "help"; }

const char* HelpCmd::getlong() {
  return "  syntax:  help [<command>|long]\n"
         "\n"
         "  description:\n"
         "    Displays help information for all or a specific command.\n"
         "\n"
         "  examples:\n"
         "    tev-cli> help        ### displays the short form of help for all the commands\n"
         "    tev-cli> help long   ### displays the long  form of help for all the commands\n"
         "    tev-cli> help <cmd>  ### displays the long  form of help for the command <cmd>\n";
}

const char* HelpCmd::getshort() { return "[<command>|long]"; }
