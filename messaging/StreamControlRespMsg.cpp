#include "messaging/StreamControlRespMsg.h"

#include "messaging/Protocol.h"

const MsgLayout StreamControlRespMsg::layout = {
    "StreamControlRespMsg",  protocol::streamControlResp, PipeForm::native,
    /*restoresFlags*/ false, /*rendersMtype*/ false,      {{"status", protocol::statusUnset}},
};

StreamControlRespMsg::StreamControlRespMsg(unsigned long srcTid, unsigned long dstTid, unsigned short status)
    : MsgOf(srcTid, dstTid) {
  setWord(0, status);
}
