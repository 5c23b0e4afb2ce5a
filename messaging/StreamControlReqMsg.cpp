#include "messaging/StreamControlReqMsg.h"

#include "messaging/Protocol.h"

const MsgLayout StreamControlReqMsg::layout = {
    "StreamControlReqMsg",  protocol::streamControlReq,    PipeForm::none, /*restoresFlags*/ true,
    /*rendersMtype*/ false, {{"control", 1}, {"type", 1}},
};
