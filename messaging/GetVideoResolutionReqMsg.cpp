#include "messaging/GetVideoResolutionReqMsg.h"

const MsgLayout GetVideoResolutionReqMsg::layout = {
    "GetVideoResolutionReqMsg", 102, PipeForm::none, /*restoresFlags*/ true, /*rendersMtype*/ false, {},
};
