// What SetAudioSourceReqMsg is to the console: something it sends.
#include "messaging/SetAudioSourceReqMsg.h"

int SetAudioSourceReqMsg::InvokeHandler(CommObj*) { return 0; }
