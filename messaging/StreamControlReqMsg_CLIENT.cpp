// What StreamControlReqMsg is to the console: something it sends.
#include "messaging/StreamControlReqMsg.h"

int StreamControlReqMsg::InvokeHandler(CommObj*) { return 0; }
