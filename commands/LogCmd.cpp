#include "commands/LogCmd.h"

#include "commands/ServiceRequest.h"
#include "commands/Words.h"
#include "messaging/SetLoggingModeReqMsg.h"

namespace {

void switchLogging(bool on) {
  ServiceRequest<SetLoggingModeReqMsg> request{ServiceProxies(protocol::adminTask)};
  request->SetOnOff(on ? protocol::logging::on : protocol::logging::off);
  request->SetComponent(protocol::logging::allComponents);
  request.post();
}

} // namespace

bool LogCmd::operator()(const ArgVec& args) {
  if (args.size() < 3) {
    printWrongWords("log: insufficient args");
  } else if (!isOneOf(args[1], "enable|disable")) {
    printWrongWords("log: unsupported choice[" + args[1] + "]");
  } else if (args[2] != "all") {
    printWrongWords("log: unsupported component[" + args[2] + "]");
  } else {
    switchLogging(args[1] == "enable");
  }
  return false;
}

const char* LogCmd::getkey() { return "log"; }

const char* LogCmd::getlong() {
  return "  syntax:  log <enable|disable> all\n"
         "\n"
         "  examples:\n"
         "    tev-cli> log enable all\n"
         "    tev-cli> log disable all\n";
}

const char* LogCmd::getshort() { return "enable/disable logging"; }
