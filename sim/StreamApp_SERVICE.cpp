// What the messages of the streaming service are to the services: in place of the console's units.
#include "messaging/StreamControlReqMsg.h"
#include "messaging/StreamControlRespMsg.h"
#include "sim/Service.h"

void sim::registerStreamAppMessages() { registerMessages<StreamControlReqMsg, StreamControlRespMsg>(); }

int StreamControlReqMsg::InvokeHandler(CommObj* receiver) { return sim::serve(*this, receiver); }
int StreamControlRespMsg::InvokeHandler(CommObj* receiver) { return sim::serveUnanswered(*this, receiver); }
