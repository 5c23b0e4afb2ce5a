// What SetVideoResolutionRespMsg is to the console: an answer that is read straight from its pipe.
#include "messaging/SetVideoResolutionRespMsg.h"

int SetVideoResolutionRespMsg::InvokeHandler(CommObj*) { return 0; }
