#include "messaging/SetAudioSourceRespMsg.h"

#include "messaging/Protocol.h"

const MsgLayout SetAudioSourceRespMsg::layout = {
    "SetAudioSourceRespMsg", protocol::setAudioSourceResp, PipeForm::native,
    /*restoresFlags*/ true,  /*rendersMtype*/ false,       {{"status", protocol::statusUnset}},
};

SetAudioSourceRespMsg::SetAudioSourceRespMsg(unsigned long srcTid, unsigned long dstTid, unsigned short status)
    : MsgOf(srcTid, dstTid) {
  setWord(0, status);
}
