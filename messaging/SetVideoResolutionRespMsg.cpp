#include "messaging/SetVideoResolutionRespMsg.h"

#include "messaging/Protocol.h"

const MsgLayout SetVideoResolutionRespMsg::layout = {
    "SetVideoResolutionRespMsg", protocol::setVideoResolutionResp, PipeForm::native,
    /*restoresFlags*/ false,     /*rendersMtype*/ false,           {{"status", protocol::statusUnset}},
};
