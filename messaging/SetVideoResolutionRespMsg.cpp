#include "messaging/SetVideoResolutionRespMsg.h"

const MsgLayout SetVideoResolutionRespMsg::layout = {
    "SetVideoResolutionRespMsg", 105, PipeForm::native, /*restoresFlags*/ false, /*rendersMtype*/ false,
    {{"   status  = ", 65535}},
};

SetVideoResolutionRespMsg::SetVideoResolutionRespMsg(unsigned long srcTid, unsigned long dstTid, unsigned short status)
    : MsgOf(srcTid, dstTid) {
  setWord(0, status);
}
