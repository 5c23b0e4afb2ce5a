#include "messaging/SetVideoModeReqMsg.h"

#include "messaging/Protocol.h"

const MsgLayout SetVideoModeReqMsg::layout = {
    "SetVideoModeReqMsg",   protocol::setVideoModeReq, PipeForm::native,
    /*restoresFlags*/ true, /*rendersMtype*/ false,    {{"mode", 3}},
};

unsigned short SetVideoModeReqMsg::MapString2Mode(const std::string& name) {
  using namespace protocol::videoMode;
  static constexpr struct {
    const char* name;
    unsigned short mode;
  } modes[] = {{"hdmi", hdmi},           {"dvi", dvi},       {"vga", vga},
               {"svga", svga},           {"xga", xga},       {"wxga", wxga},
               {"component", component}, {"svideo", svideo}, {"composite", composite}};
  for (const auto& entry : modes) {
    if (name == entry.name) return entry.mode;
  }
  return modes[0].mode;
}
