// What GetVideoResolutionRespMsg is to the console: an answer that is read straight from its pipe.
#include "messaging/GetVideoResolutionRespMsg.h"

int GetVideoResolutionRespMsg::InvokeHandler(CommObj*) { return 0; }
