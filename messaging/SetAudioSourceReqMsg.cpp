#include "messaging/SetAudioSourceReqMsg.h"

const MsgLayout SetAudioSourceReqMsg::layout = {
    "SetAudioSourceReqMsg",  120, PipeForm::native, /*restoresFlags*/ true, /*rendersMtype*/ false,
    {{"   audiosrc = ", 1}},
};

SetAudioSourceReqMsg::SetAudioSourceReqMsg(unsigned long srcTid, unsigned long dstTid, unsigned short audiosrc)
    : MsgOf(srcTid, dstTid) {
  setWord(0, audiosrc);
}

unsigned short SetAudioSourceReqMsg::MapString2AudioSource(const std::string& name) { return name == "analog" ? 2 : 1; }
