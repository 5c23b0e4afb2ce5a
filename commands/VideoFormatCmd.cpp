#include "commands/VideoFormatCmd.h"

#include "commands/Console.h"
#include "commands/Node.h"
#include "commands/Report.h"
#include "commands/ServiceRequest.h"
#include "commands/Words.h"
#include "messaging/SetVideoModeReqMsg.h"

#include <fcntl.h>
#include <iostream>

namespace {

constexpr const char* formatNode = "/sys/bus/i2c/devices/2-0020/format";

void setFormat(const ServiceProxies& proxies, const std::string& word) {
  ServiceRequest<SetVideoModeReqMsg> request(proxies);
  request->SetMode(SetVideoModeReqMsg::MapString2Mode(word));
  request.exchange();
}

void showFormat() {
  const Node format(formatNode, O_RDONLY);
  if (!format.isOpen()) {
    printLine(std::cerr, "error: couldn't determine the video-format");
    return;
  }
  const std::string text = format.read(15);
  Report::present->text("format", text.substr(0, text.find('\n')));
  printLine(std::cout, "video-format: " + text); // a newline from the driver is printed as part of it
}

} // namespace

bool VideoFormatCmd::operator()(const ArgVec& args) {
  const ServiceProxies proxies(protocol::videoTask);
  if (isQuery(args)) {
    showFormat();
  } else if (args.size() == 2 && isOneOf(args[1], formats)) {
    setFormat(proxies, args[1]);
  } else {
    printIncorrectParameters(getkey(), "<format|status|?>");
  }
  return false;
}

const char* VideoFormatCmd::getkey() { return "video-format"; }

const char* VideoFormatCmd::getlong() {
  return "  syntax:  video-format <hdmi|dvi|wxga|xga|svga|vga|component|svideo|composite|status|?>\n"
         "\n"
         "  description:\n"
         "    GETs/SETs the current video input format. It ***does not***\n"
         "    change the input resolution.\n"
         "\n"
         "  examples:\n"
         "    tev-cli> video-format         ### displays the current format.\n"
         "    tev-cli> video-format   ?     ### displays the current format.\n"
         "    tev-cli> video-format status  ### displays the current format.\n"
         "    tev-cli> video-format hdmi    ### sets the input format to hdmi\n"
         "\n";
}

const char* VideoFormatCmd::getshort() { return "<hdmi|dvi|wxga|xga|svga|vga|component|svideo|composite|status|?>"; }
