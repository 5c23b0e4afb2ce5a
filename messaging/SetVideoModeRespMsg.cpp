#include "messaging/SetVideoModeRespMsg.h"

const MsgLayout SetVideoModeRespMsg::layout = {
    "SetVideoModeRespMsg",      101, PipeForm::native, /*restoresFlags*/ true, /*rendersMtype*/ false,
    {{"   status  = ", 65535}},
};

SetVideoModeRespMsg::SetVideoModeRespMsg(unsigned long srcTid, unsigned long dstTid, unsigned short status)
    : MsgOf(srcTid, dstTid) {
  setWord(0, status);
}
