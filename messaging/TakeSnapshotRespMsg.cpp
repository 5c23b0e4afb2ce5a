#include "messaging/TakeSnapshotRespMsg.h"

#include "messaging/Protocol.h"
#include "messaging/internal/ErrorTrace.h"

const MsgLayout TakeSnapshotRespMsg::layout = {
    "TakeSnapshotRespMsg",   protocol::takeSnapshotResp, PipeForm::native,
    /*restoresFlags*/ false, /*rendersMtype*/ true,      {{"status", protocol::statusUnset}},
};

MsgObj* TakeSnapshotRespMsg::Create(const void* buffer) {
  traceError("TakeSnapshotReqMsg::Create(): msgtype=%d", idIn(buffer));
  return MsgOf::Create(buffer);
}
