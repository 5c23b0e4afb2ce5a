#include "messaging/SetLoggingModeReqMsg.h"

const MsgLayout SetLoggingModeReqMsg::layout = {
    "SetLoggingModeReqMsg", 112,
    PipeForm::native,       /*restoresFlags*/ true,
    /*rendersMtype*/ false, {{"   onoff   = ", 0}, {"   component = ", 0}},
};
