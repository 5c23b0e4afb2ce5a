// What SetVideoModeRespMsg is to the console: an answer that is read straight from its pipe.
#include "messaging/SetVideoModeRespMsg.h"

int SetVideoModeRespMsg::InvokeHandler(CommObj*) { return 0; }
