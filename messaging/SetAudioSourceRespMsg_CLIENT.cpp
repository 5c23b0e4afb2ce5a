// What SetAudioSourceRespMsg is to the console: an answer that is read straight from its pipe.
#include "messaging/SetAudioSourceRespMsg.h"

int SetAudioSourceRespMsg::InvokeHandler(CommObj*) { return 0; }
