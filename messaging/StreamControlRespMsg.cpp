#include "messaging/StreamControlRespMsg.h"

const MsgLayout StreamControlRespMsg::layout = {
    "StreamControlRespMsg",     107, PipeForm::native, /*restoresFlags*/ false, /*rendersMtype*/ false,
    {{"   status  = ", 65535}},
};

StreamControlRespMsg::StreamControlRespMsg(unsigned long srcTid, unsigned long dstTid, unsigned short status)
    : MsgOf(srcTid, dstTid) {
  setWord(0, status);
}
