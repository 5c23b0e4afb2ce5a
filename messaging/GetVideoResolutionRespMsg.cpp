#include "messaging/GetVideoResolutionRespMsg.h"

const MsgLayout GetVideoResolutionRespMsg::layout = {
    "GetVideoResolutionRespMsg",
    103,
    PipeForm::native,
    /*restoresFlags*/ false,
    /*rendersMtype*/ false,
    {{"   status  = ", 65535},
     {"   horizontal = ", 0},
     {"   vertical   = ", 0},
     {"   qualifier  = ", 0},
     {"   hertz      = ", 0},
     {"   sdp_std    = ", 0}},
};

GetVideoResolutionRespMsg::GetVideoResolutionRespMsg(unsigned long srcTid, unsigned long dstTid, unsigned short status)
    : MsgOf(srcTid, dstTid) {
  setWord(0, status);
}
