#include "messaging/TakeSnapshotRespMsg.h"

const MsgLayout TakeSnapshotRespMsg::layout = {
    "TakeSnapshotRespMsg",      111, PipeForm::native, /*restoresFlags*/ false, /*rendersMtype*/ true,
    {{"   status  = ", 65535}},
};

MsgObj* TakeSnapshotRespMsg::Create(const void* buffer) {
  traceError("TakeSnapshotReqMsg::Create(): msgtype=%d", idIn(buffer));
  return MsgOf::Create(buffer);
}
