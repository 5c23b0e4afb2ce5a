#include "messaging/SetVideoModeReqMsg.h"

const MsgLayout SetVideoModeReqMsg::layout = {
    "SetVideoModeReqMsg", 100, PipeForm::native, /*restoresFlags*/ true, /*rendersMtype*/ false, {{"   mode    = ", 3}},
};

SetVideoModeReqMsg::SetVideoModeReqMsg(unsigned long srcTid, unsigned long dstTid, unsigned short mode)
    : MsgOf(srcTid, dstTid) {
  setWord(0, mode);
}

unsigned short SetVideoModeReqMsg::MapString2Mode(const std::string& name) {
  static constexpr struct {
    const char* name;
    unsigned short mode;
  } modes[] = {{"hdmi", 9}, {"dvi", 8},       {"vga", 4},    {"svga", 5},     {"xga", 6},
               {"wxga", 7}, {"component", 3}, {"svideo", 1}, {"composite", 2}};
  for (const auto& entry : modes) {
    if (name == entry.name) return entry.mode;
  }
  return modes[0].mode;
}
