// What TakeSnapshotReqMsg is to the console: something it sends.
#include "messaging/TakeSnapshotReqMsg.h"

int TakeSnapshotReqMsg::InvokeHandler(CommObj*) { return 0; }
