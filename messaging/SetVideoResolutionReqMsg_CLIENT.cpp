// What SetVideoResolutionReqMsg is to the console: something it sends.
#include "messaging/SetVideoResolutionReqMsg.h"

int SetVideoResolutionReqMsg::InvokeHandler(CommObj*) { return 0; }
