#include "messaging/StreamControlReqMsg.h"

const MsgLayout StreamControlReqMsg::layout = {
    "StreamControlReqMsg",  106,
    PipeForm::none,         /*restoresFlags*/ true,
    /*rendersMtype*/ false, {{"   control = ", 1}, {"   type    = ", 1}},
};
