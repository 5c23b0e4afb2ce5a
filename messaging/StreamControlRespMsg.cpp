#include "messaging/StreamControlRespMsg.h"

#include "messaging/Protocol.h"

const MsgLayout StreamControlRespMsg::layout = {
    "StreamControlRespMsg",  protocol::streamControlResp, PipeForm::native,
    /*restoresFlags*/ false, /*rendersMtype*/ false,      {{"status", protocol::statusUnset}},
};
