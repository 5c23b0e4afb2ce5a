#include "messaging/AdminControlRespMsg.h"

#include "messaging/Protocol.h"
#include "messaging/internal/ErrorTrace.h"

const MsgLayout AdminControlRespMsg::layout = {
    "AdminControlRespMsg",   protocol::adminControlResp, PipeForm::bigEndian,
    /*restoresFlags*/ false, /*rendersMtype*/ true,      {{"status", protocol::statusUnset}},
};

AdminControlRespMsg::AdminControlRespMsg() { SetStatus(3); }

void populate_msgbuff(void* buffer, int, const AdminControlRespMsg& message) {
  message.encodeTo(buffer, AdminControlRespMsg::layout);
}

MsgObj* AdminControlRespMsg::Create(const void* buffer) {
  traceError("AdminControlReqMsg::Create(): msgtype=%d", idIn(buffer));
  auto* message = static_cast<AdminControlRespMsg*>(MsgOf::Create(buffer));
  if (message != nullptr) {
    traceError("KIP_ADMIN_CNTRL_RESP_MSG_ID:status = %d", message->GetStatus());
  }
  return message;
}
