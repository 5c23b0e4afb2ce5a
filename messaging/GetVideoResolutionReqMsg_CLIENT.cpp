// What GetVideoResolutionReqMsg is to the console: something it sends.
#include "messaging/GetVideoResolutionReqMsg.h"
int GetVideoResolutionReqMsg::InvokeHandler(CommObj*) { return 0; }
