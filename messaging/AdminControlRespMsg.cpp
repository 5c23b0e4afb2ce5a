#include "messaging/AdminControlRespMsg.h"

#include <iostream>

const MsgLayout AdminControlRespMsg::layout = {
    "AdminControlRespMsg",      109, PipeForm::bigEndian, /*restoresFlags*/ false, /*rendersMtype*/ true,
    {{"   status  = ", 65535}},
};

AdminControlRespMsg::AdminControlRespMsg() { setWord(0, 3); }

void populate_msgbuff(void* buffer, int, const AdminControlRespMsg& message) {
  message.encodeTo(buffer, AdminControlRespMsg::layout);
}

MsgObj* AdminControlRespMsg::Create(const void* buffer) {
  std::cerr << "AdminControlReqMsg::Create(): msgtype=" + std::to_string(idIn(buffer)) << std::endl;
  auto* message = static_cast<AdminControlRespMsg*>(MsgOf::Create(buffer));
  if (message != nullptr) {
    std::cerr << "KIP_ADMIN_CNTRL_RESP_MSG_ID:status = " + std::to_string(message->word(0)) << std::endl;
  }
  return message;
}
