// What SetLoggingModeReqMsg is to the console: something it sends.
#include "messaging/SetLoggingModeReqMsg.h"

int SetLoggingModeReqMsg::InvokeHandler(CommObj*) { return 0; }
