// What AdminControlReqMsg is to the console: something it sends.
#include "messaging/AdminControlReqMsg.h"

int AdminControlReqMsg::InvokeHandler(CommObj*) { return 0; }
