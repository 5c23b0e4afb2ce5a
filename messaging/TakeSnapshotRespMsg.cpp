#include "messaging/TakeSnapshotRespMsg.h"

#include <iostream>

const MsgLayout TakeSnapshotRespMsg::layout = {
    "TakeSnapshotRespMsg",      111, PipeForm::native, /*restoresFlags*/ false, /*rendersMtype*/ true,
    {{"   status  = ", 65535}},
};

MsgObj* TakeSnapshotRespMsg::Create(const void* buffer) {
  std::cerr << "TakeSnapshotReqMsg::Create(): msgtype=" + std::to_string(idIn(buffer)) << std::endl;
  return MsgOf::Create(buffer);
}
