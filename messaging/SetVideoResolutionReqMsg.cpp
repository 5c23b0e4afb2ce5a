#include "messaging/SetVideoResolutionReqMsg.h"

#include "messaging/Protocol.h"

const MsgLayout SetVideoResolutionReqMsg::layout = {
    "SetVideoResolutionReqMsg", protocol::setVideoResolutionReq,
    PipeForm::native,
    /*restoresFlags*/ true,
    /*rendersMtype*/ false,     {{"horizontal", 0}, {"vertical", 0, 10}, {"qualifier", 1, 10}, {"hertz", 0, 10}},
};
