#include "messaging/SetVideoModeRespMsg.h"

#include "messaging/Protocol.h"

const MsgLayout SetVideoModeRespMsg::layout = {
    "SetVideoModeRespMsg",  protocol::setVideoModeResp, PipeForm::native,
    /*restoresFlags*/ true, /*rendersMtype*/ false,     {{"status", protocol::statusUnset}},
};
