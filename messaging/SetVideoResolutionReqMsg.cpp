#include "messaging/SetVideoResolutionReqMsg.h"

const MsgLayout SetVideoResolutionReqMsg::layout = {
    "SetVideoResolutionReqMsg",
    104,
    PipeForm::native,
    /*restoresFlags*/ true,
    /*rendersMtype*/ false,
    {{"   horizontal = ", 0}, {"   vertical   = ", 0}, {"   qualifier  = ", 1}, {"   hertz      = ", 0}},
};
