#include "commands/VlanCmd.h"

#include "commands/Node.h"
#include "commands/Words.h"

#include <fcntl.h>
#include <initializer_list>

namespace {

constexpr const char* switchNode = "/sys/module/ksz8864/drivers/smi";

// Writes each command to the switch driver in a separate call.
void sendToSwitch(std::initializer_list<const char*> commands) {
  const Node node(switchNode, O_RDWR);
  if (!node.isOpen()) {
    printNodeNotFound(switchNode);
    return;
  }
  for (const char* command : commands)
    node.write(command);
}

} // namespace

bool VlanCmd::operator()(const ArgVec& args) {
  if (args.size() < 2) return false;
  if (args[1] == "on") {
    sendToSwitch({"write vlan 1 1 4 1", "write vlan 269 2 10 1", "write 0x05 0x80"});
  } else if (args[1] == "off") {
    sendToSwitch({"write 0x05 0x00"}); // the two table entries stay
  } else {
    printUnsupportedSubcommand(args[1]);
  }
  return false;
}

const char* VlanCmd::getkey() { return "vlan"; }

const char* VlanCmd::getlong() {
  return "  syntax:  vlan <on|off>\n"
         "\n"
         "  description:\n"
         "    Turns the VLAN mode 'on' or 'off'.\n"
         "\n"
         "  examples:\n"
         "    tev-cli> vlan on  \n"
         "    tev-cli> vlan off \n";
}

const char* VlanCmd::getshort() { return "<on|off>"; }
