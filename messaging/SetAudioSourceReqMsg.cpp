#include "messaging/SetAudioSourceReqMsg.h"

#include "messaging/Protocol.h"

const MsgLayout SetAudioSourceReqMsg::layout = {
    "SetAudioSourceReqMsg", protocol::setAudioSourceReq, PipeForm::native,
    /*restoresFlags*/ true, /*rendersMtype*/ false,      {{"audiosrc", 1}},
};

SetAudioSourceReqMsg::SetAudioSourceReqMsg(unsigned long srcTid, unsigned long dstTid, unsigned short audiosrc)
    : MsgOf(srcTid, dstTid) {
  SetAudioSource(audiosrc);
}

unsigned short SetAudioSourceReqMsg::MapString2AudioSource(const std::string& name) {
  using namespace protocol::audioSource;
  return name == "analog" ? analog : digital;
}
