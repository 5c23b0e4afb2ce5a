#include "messaging/AdminControlReqMsg.h"

#include "messaging/Protocol.h"

const MsgLayout AdminControlReqMsg::layout = {
    "AdminControlReqMsg",   protocol::adminControlReq,
    PipeForm::bigEndian,
    /*restoresFlags*/ true,
    /*rendersMtype*/ true,  {{"control", 2}, {"arg1", 0}, {"arg2", 0}, {"arg3", 0}, {"arg4", 0}},
};

void populate_msgbuff(void* buffer, int, const AdminControlReqMsg& message) {
  message.encodeTo(buffer, AdminControlReqMsg::layout);
}
