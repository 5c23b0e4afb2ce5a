#include "commands/StreamCmd.h"

#include "commands/Console.h"
#include "commands/Node.h"
#include "commands/Report.h"
#include "commands/ServiceRequest.h"
#include "commands/Words.h"
#include "messaging/StreamControlReqMsg.h"

#include <fcntl.h>
#include <iostream>

namespace {

constexpr const char* streamingNode = "/sys/class/gpio/gpio26/value"; // active high

void control(const ServiceProxies& proxies, const std::string& action, const std::string& type) {
  ServiceRequest<StreamControlReqMsg> request(proxies);
  using namespace protocol;
  request->SetControl(action == "start" ? streamControl::start : streamControl::stop);
  request->SetType(type == "audio" ? streamType::audio : type == "video" ? streamType::video : streamType::both);
  if (const auto reply = request.exchange()) logReply("stream-cmd: got respmsg: ", *reply);
}

void showStatus() {
  const Node streaming(streamingNode, O_RDONLY);
  if (!streaming.isOpen()) {
    printLine(std::cerr, "error: couldn't determine the streaming status");
    return;
  }
  const bool on = streaming.read(2).substr(0, 1) == "1";
  Report::present->flag("streaming", on);
  printLine(std::cout, on ? "streaming is: on" : "streaming is: off");
}

} // namespace

bool StreamCmd::operator()(const ArgVec& args) {
  const ServiceProxies proxies(protocol::streamTask);
  if (isQuery(args)) {
    showStatus();
    return false;
  }
  const std::string type = args.size() > 2 ? args[2] : "both";
  if (isOneOf(args[1], "start|stop") && isOneOf(type, "audio|video|both")) {
    control(proxies, args[1], type);
  } else {
    printIncorrectParameters(getkey(), getshort());
  }
  return false;
}

const char* StreamCmd::getkey() { return "stream"; }

const char* StreamCmd::getlong() {
  return "  syntax:  stream <start|stop|status|?> [audio|video|both]\n"
         "\n"
         "  description:\n"
         "    Starts or Stops the stream. Can also be used to see if a stream\n"
         "    is currently in progress.\n"
         "\n"
         "  examples:\n"
         "    tev-cli> stream              ### displays the streaming status\n"
         "    tev-cli> stream  ?           ### displays the streaming status\n"
         "    tev-cli> stream status       ### displays the streaming status.\n"
         "    tev-cli> stream start        ### starts the stream.\n"
         "\n"
         "    tev-cli> stream start video  ### starts the stream.\n"
         "\n"
         "    tev-cli> stream stop         ### stops  the stream.\n"
         "\n"
         "  supported values:\n"
         "    640x480p@60     with FORMATS: hdmi \n"
         "    800x600p@60     with FORMATS: hdmi \n";
}

const char* StreamCmd::getshort() { return "<start|stop|status|?> [audio|video|both]"; }
