// All messages, for code that handles every one of them.
#ifndef TEV_MESSAGING_MESSAGES_H
#define TEV_MESSAGING_MESSAGES_H

#include "messaging/AdminControlReqMsg.h"
#include "messaging/AdminControlRespMsg.h"
#include "messaging/GetVideoResolutionReqMsg.h"
#include "messaging/GetVideoResolutionRespMsg.h"
#include "messaging/SetAudioSourceReqMsg.h"
#include "messaging/SetAudioSourceRespMsg.h"
#include "messaging/SetLoggingModeReqMsg.h"
#include "messaging/SetVideoModeReqMsg.h"
#include "messaging/SetVideoModeRespMsg.h"
#include "messaging/SetVideoResolutionReqMsg.h"
#include "messaging/SetVideoResolutionRespMsg.h"
#include "messaging/StreamControlReqMsg.h"
#include "messaging/StreamControlRespMsg.h"
#include "messaging/TakeSnapshotReqMsg.h"
#include "messaging/TakeSnapshotRespMsg.h"

#endif
