#include "messaging/SetVideoModeRespMsg.h"

#include "messaging/Protocol.h"

const MsgLayout SetVideoModeRespMsg::layout = {
    "SetVideoModeRespMsg",  protocol::setVideoModeResp, PipeForm::native,
    /*restoresFlags*/ true, /*rendersMtype*/ false,     {{"status", protocol::statusUnset}},
};

SetVideoModeRespMsg::SetVideoModeRespMsg(unsigned long srcTid, unsigned long dstTid, unsigned short status)
    : MsgOf(srcTid, dstTid) {
  setWord(0, status);
}
