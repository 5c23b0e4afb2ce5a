#include "messaging/TakeSnapshotReqMsg.h"

#include "messaging/Protocol.h"

const MsgLayout TakeSnapshotReqMsg::layout = {
    "TakeSnapshotReqMsg",  protocol::takeSnapshotReq,   PipeForm::none, /*restoresFlags*/ true,
    /*rendersMtype*/ true, {{"slot", 0}, {"scale", 0}},
};
