#include "messaging/SetAudioSourceReqMsg.h"

#include "messaging/Protocol.h"

const MsgLayout SetAudioSourceReqMsg::layout = {
    "SetAudioSourceReqMsg", protocol::setAudioSourceReq, PipeForm::native,
    /*restoresFlags*/ true, /*rendersMtype*/ false,      {{"audiosrc", 1}},
};

unsigned short SetAudioSourceReqMsg::MapString2AudioSource(const std::string& name) {
  using namespace protocol::audioSource;
  return name == "analog" ? analog : digital;
}
