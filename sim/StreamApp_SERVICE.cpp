// The handlers of the streaming messages in a service task. They replace the console's _CLIENT units.
#include "messaging/StreamControlReqMsg.h"
#include "messaging/StreamControlRespMsg.h"
#include "sim/Service.h"

void sim::registerStreamAppMessages() { registerMessages<StreamControlReqMsg, StreamControlRespMsg>(); }

int StreamControlReqMsg::InvokeHandler(CommObj* receiver) { return sim::serve(*this, receiver); }
int StreamControlRespMsg::InvokeHandler(CommObj* receiver) { return sim::serveUnanswered(*this, receiver); }
