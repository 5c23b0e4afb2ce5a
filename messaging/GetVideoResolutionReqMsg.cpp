#include "messaging/GetVideoResolutionReqMsg.h"

#include "messaging/Protocol.h"

const MsgLayout GetVideoResolutionReqMsg::layout = {
    "GetVideoResolutionReqMsg", protocol::getVideoResolutionReq, PipeForm::none,
    /*restoresFlags*/ true,     /*rendersMtype*/ false,          {},
};
