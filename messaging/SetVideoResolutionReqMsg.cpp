#include "messaging/SetVideoResolutionReqMsg.h"

#include "messaging/SetVideoResolutionRespMsg.h"

const MsgLayout SetVideoResolutionReqMsg::layout = {
    "SetVideoResolutionReqMsg",
    104,
    PipeForm::native,
    /*restoresFlags*/ true,
    /*rendersMtype*/ false,
    {{"   horizontal = ", 0}, {"   vertical   = ", 0}, {"   qualifier  = ", 1}, {"   hertz      = ", 0}},
};

MsgObj* SetVideoResolutionReqMsg::CreateResponse() { return new (std::nothrow) SetVideoResolutionRespMsg; }
