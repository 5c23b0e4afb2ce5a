#include "messaging/StreamControlReqMsg.h"

#include "messaging/StreamControlRespMsg.h"

const MsgLayout StreamControlReqMsg::layout = {
    "StreamControlReqMsg",  106,
    PipeForm::none,         /*restoresFlags*/ true,
    /*rendersMtype*/ false, {{"   control = ", 1}, {"   type    = ", 1}},
};

MsgObj* StreamControlReqMsg::CreateResponse() { return new (std::nothrow) StreamControlRespMsg; }
