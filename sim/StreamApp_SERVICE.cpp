// What the messages of the streaming service are to the services: in place of the console's units.
#include "messaging/StreamControlReqMsg.h"
#include "messaging/StreamControlRespMsg.h"
#include "sim/Service.h"

// Every service decodes all messages, so that one which reaches the wrong service is answered too.
namespace {

StreamControlReqMsg streamControlRequest{Exemplar()};
StreamControlRespMsg streamControlResponse{Exemplar()};

} // namespace

int StreamControlReqMsg::InvokeHandler(CommObj* receiver) { return sim::serve<StreamControlRespMsg>(*this, receiver); }
int StreamControlRespMsg::InvokeHandler(CommObj* receiver) { return sim::take(*this, receiver); }
MsgObj* StreamControlRespMsg::CreateResponse() { return nullptr; }
