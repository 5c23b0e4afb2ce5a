// What StreamControlRespMsg is to the console: an answer that is read straight from its pipe.
#include "messaging/StreamControlRespMsg.h"

int StreamControlRespMsg::InvokeHandler(CommObj*) { return 0; }
