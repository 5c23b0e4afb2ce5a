#include "messaging/TakeSnapshotReqMsg.h"

#include "messaging/TakeSnapshotRespMsg.h"

const MsgLayout TakeSnapshotReqMsg::layout = {
    "TakeSnapshotReqMsg",  110,
    PipeForm::none,        /*restoresFlags*/ true,
    /*rendersMtype*/ true, {{"   slot    = ", 0}, {"   scale   = ", 0}},
};

MsgObj* TakeSnapshotReqMsg::CreateResponse() { return new (std::nothrow) TakeSnapshotRespMsg; }
