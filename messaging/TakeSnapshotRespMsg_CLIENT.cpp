// What TakeSnapshotRespMsg is to the console: an answer that is read straight from its pipe.
#include "messaging/TakeSnapshotRespMsg.h"

int TakeSnapshotRespMsg::InvokeHandler(CommObj*) { return 0; }
