// The handlers of the administration messages in a service task. They replace the console's _CLIENT units.
#include "messaging/AdminControlReqMsg.h"
#include "messaging/AdminControlRespMsg.h"
#include "messaging/SetLoggingModeReqMsg.h"
#include "sim/Service.h"

void sim::registerAdminAppMessages() {
  registerMessages<AdminControlReqMsg, AdminControlRespMsg, SetLoggingModeReqMsg>();
}

int AdminControlReqMsg::InvokeHandler(CommObj* receiver) { return sim::serve(*this, receiver); }
int AdminControlRespMsg::InvokeHandler(CommObj* receiver) { return sim::serveUnanswered(*this, receiver); }
int SetLoggingModeReqMsg::InvokeHandler(CommObj* receiver) { return sim::serveUnanswered(*this, receiver); }
