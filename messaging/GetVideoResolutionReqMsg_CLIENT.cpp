// What GetVideoResolutionReqMsg is to the console: something it sends.
#include "messaging/GetVideoResolutionReqMsg.h"
#include "messaging/GetVideoResolutionRespMsg.h"

int GetVideoResolutionReqMsg::InvokeHandler(CommObj*) { return 0; }

MsgObj* GetVideoResolutionReqMsg::CreateResponse() { return new (std::nothrow) GetVideoResolutionRespMsg; }
