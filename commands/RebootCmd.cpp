#include "commands/RebootCmd.h"

#include "commands/Console.h"
#include "commands/ServiceRequest.h"
#include "messaging/AdminControlReqMsg.h"

#include <iostream>

bool RebootCmd::operator()(const ArgVec&) {
  printLine(std::cerr, "reboot: ...");
  ServiceRequest<AdminControlReqMsg> request{ServiceProxies(protocol::adminTask)};
  request->SetControl(protocol::adminControl::reboot);
  request->SetArg1(0);
  request.exchange();
  return false;
}

const char* RebootCmd::getkey() { return "reboot"; }

const char* RebootCmd::getlong() {
  return "  syntax:  reboot [current|previous|factory]\n"
         "\n"
         "  description:\n"
         "    Reboots the platform. The default is to reboot with\n"
         "    the 'current' image. You can also reboot with the 'previous'\n"
         "    image or the 'factory' image.\n"
         "\n"
         "  examples:\n"
         "    tev-cli> reboot          ### reboots with the current image\n"
         "    tev-cli> reboot current  ### reboots with the current image\n"
         "    tev-cli> reboot previous ### reboots with the factory image\n"
         "    tev-cli> reboot factory  ### reboots with the factory image\n";
}

const char* RebootCmd::getshort() { return "resets/(warm-boots) the device"; }
