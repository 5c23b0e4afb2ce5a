// What SetVideoModeReqMsg is to the console: something it sends.
#include "messaging/SetVideoModeReqMsg.h"

int SetVideoModeReqMsg::InvokeHandler(CommObj*) { return 0; }
