// What AdminControlRespMsg is to the console: an answer that is read straight from its pipe.
#include "messaging/AdminControlRespMsg.h"

int AdminControlRespMsg::InvokeHandler(CommObj*) { return 0; }
