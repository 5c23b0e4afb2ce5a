#include "messaging/GetVideoResolutionRespMsg.h"

#include "messaging/Protocol.h"

const MsgLayout GetVideoResolutionRespMsg::layout = {
    "GetVideoResolutionRespMsg",
    protocol::getVideoResolutionResp,
    PipeForm::native,
    /*restoresFlags*/ false,
    /*rendersMtype*/ false,
    {{"status", protocol::statusUnset},
     {"horizontal", 0},
     {"vertical", 0, 10},
     {"qualifier", 0, 10},
     {"hertz", 0, 10},
     {"sdp_std", 0, 10}},
};
