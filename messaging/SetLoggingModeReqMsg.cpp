#include "messaging/SetLoggingModeReqMsg.h"

#include "messaging/Protocol.h"

const MsgLayout SetLoggingModeReqMsg::layout = {
    "SetLoggingModeReqMsg", protocol::setLoggingModeReq,      PipeForm::native, /*restoresFlags*/ true,
    /*rendersMtype*/ false, {{"onoff", 0}, {"component", 0}},
};
