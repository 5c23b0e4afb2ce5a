#include "commands/VideoResolutionCmd.h"

#include "commands/Console.h"
#include "commands/Report.h"
#include "commands/ServiceRequest.h"
#include "commands/Words.h"
#include "messaging/GetVideoResolutionReqMsg.h"
#include "messaging/SetVideoResolutionReqMsg.h"

#include <cstdio>
#include <iostream>

namespace {

constexpr const char* logLabel = "video-resolution-cmd: got respmsg: ";
using protocol::qualifier::interlaced;
using protocol::qualifier::progressive;

struct Resolution {
  unsigned short horizontal = 0;
  unsigned short vertical = 0;
  unsigned short qualifier = interlaced;
  unsigned short hertz = 0;
};

// Of a word that is accepted. The television standards have 488 lines, where a word that spells its values out has 480.
Resolution resolutionNamed(const std::string& word) {
  if (word == "ntsc" || word == "pal-m") return {720, 488, interlaced, 60};
  if (word == "pal-bghid") return {720, 576, interlaced, 50};
  Resolution resolution;
  char letter = 'i';
  (void)std::sscanf(word.c_str(), "%hux%hu%c@%hu", &resolution.horizontal, &resolution.vertical, &letter,
                    &resolution.hertz); // has all four
  if (letter == 'p') resolution.qualifier = progressive;
  return resolution;
}

void setResolution(const ServiceProxies& proxies, const Resolution& resolution) {
  ServiceRequest<SetVideoResolutionReqMsg> request(proxies);
  request->SetHorizontal(resolution.horizontal);
  request->SetVertical(resolution.vertical);
  request->SetQualifier(resolution.qualifier);
  request->SetHertz(resolution.hertz);
  if (const auto reply = request.exchange()) logReply(logLabel, *reply);
}

void showResolution(const ServiceProxies& proxies) {
  ServiceRequest<GetVideoResolutionReqMsg> request(proxies);
  const auto reply = request.exchange();
  if (reply == nullptr) {
    printLine(std::cerr, "error: couldn't determine the video-resolution");
    return;
  }
  logReply(logLabel, *reply);
  const bool isProgressive = reply->GetQualifier() == progressive;
  Report::present->number("horizontal", reply->GetHorizontal());
  Report::present->number("vertical", reply->GetVertical());
  Report::present->flag("progressive", isProgressive);
  Report::present->number("hertz", reply->GetHertz());
  printLine(std::cerr, "video-resolution: " + std::to_string(reply->GetHorizontal()) + "x" +
                           std::to_string(reply->GetVertical()) + (isProgressive ? "p" : "i") + "@" +
                           std::to_string(reply->GetHertz()));
}

} // namespace

bool VideoResolutionCmd::operator()(const ArgVec& args) {
  const ServiceProxies proxies(protocol::videoTask);
  if (isQuery(args)) {
    showResolution(proxies);
  } else if (args.size() == 2 && isOneOf(args[1], resolutions)) {
    setResolution(proxies, resolutionNamed(args[1]));
  } else {
    printIncorrectParameters(getkey(), "<HxV@R|status|?>");
  }
  return false;
}

const char* VideoResolutionCmd::getkey() { return "video-resolution"; }

const char* VideoResolutionCmd::getlong() {
  return "  syntax:  video-resolution <HxV@R|status|?>\n"
         "\n"
         "  description:\n"
         "    GETs/SETs the current video-resolution. It ***does not***\n"
         "    change the input format.\n"
         "       'H' is the HORIZONTAL value as an integer (e.g.: 640).\n"
         "       'V' is the VERTICAL   value as an integer (e.g.: 480).\n"
         "       'R' is the RATE       value as an integer (e.g.:  60, in Hertz).\n"
         "\n"
         "  examples:\n"
         "    tev-cli> video-resolution             ### displays the current resolution.\n"
         "    tev-cli> video-resolution   ?         ### displays the current resolution.\n"
         "    tev-cli> video-resolution status      ### displays the current resolution.\n"
         "    tev-cli> video-resolution 640x480p@30 ### sets the resolution to 640x480p@30\n"
         "\n"
         "  supported values:\n"
         "    640x480p@30     with formats: hdmi, vga \n"
         "    800x600p@30     with formats: hdmi, svga \n"
         "    1024x768p@30    with formats: hdmi, xga \n"
         "    1280x720p@30    with formats: hdmi \n"
         "    1280x768p@30    with formats: hdmi, wxga \n"
         "    720x480p@30     with formats: component \n"
         "    720x480i@30     with formats: component, svideo(ntsc), composite(ntsc) \n"
         "    720x576p@25     with formats: component \n"
         "    720x576i@25     with formats: component, svideo(pal), composite(pal) \n"
         "    720x576i@30     with formats: component \n";
}

const char* VideoResolutionCmd::getshort() { return "<HxV@R|status|?>"; }
