#include "messaging/TakeSnapshotReqMsg.h"

const MsgLayout TakeSnapshotReqMsg::layout = {
    "TakeSnapshotReqMsg",  110,
    PipeForm::none,        /*restoresFlags*/ true,
    /*rendersMtype*/ true, {{"   slot    = ", 0}, {"   scale   = ", 0}},
};
