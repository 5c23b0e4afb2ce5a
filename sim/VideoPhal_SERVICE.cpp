// The handlers of the video messages in a service task. They replace the console's _CLIENT units.
#include "messaging/GetVideoResolutionReqMsg.h"
#include "messaging/GetVideoResolutionRespMsg.h"
#include "messaging/SetAudioSourceReqMsg.h"
#include "messaging/SetAudioSourceRespMsg.h"
#include "messaging/SetVideoModeReqMsg.h"
#include "messaging/SetVideoModeRespMsg.h"
#include "messaging/SetVideoResolutionReqMsg.h"
#include "messaging/SetVideoResolutionRespMsg.h"
#include "messaging/TakeSnapshotReqMsg.h"
#include "messaging/TakeSnapshotRespMsg.h"
#include "sim/Service.h"

void sim::registerVideoPhalMessages() {
  registerMessages<SetVideoModeReqMsg, SetVideoModeRespMsg, GetVideoResolutionReqMsg, GetVideoResolutionRespMsg,
                   SetVideoResolutionReqMsg, SetVideoResolutionRespMsg, TakeSnapshotReqMsg, TakeSnapshotRespMsg,
                   SetAudioSourceReqMsg, SetAudioSourceRespMsg>();
}

int SetVideoModeReqMsg::InvokeHandler(CommObj* receiver) { return sim::serve(*this, receiver); }
int SetVideoModeRespMsg::InvokeHandler(CommObj* receiver) { return sim::serveUnanswered(*this, receiver); }
int GetVideoResolutionReqMsg::InvokeHandler(CommObj* receiver) { return sim::serve(*this, receiver); }
int GetVideoResolutionRespMsg::InvokeHandler(CommObj* receiver) { return sim::serveUnanswered(*this, receiver); }
int SetVideoResolutionReqMsg::InvokeHandler(CommObj* receiver) { return sim::serve(*this, receiver); }
int SetVideoResolutionRespMsg::InvokeHandler(CommObj* receiver) { return sim::serveUnanswered(*this, receiver); }
int TakeSnapshotReqMsg::InvokeHandler(CommObj* receiver) { return sim::serve(*this, receiver); }
int TakeSnapshotRespMsg::InvokeHandler(CommObj* receiver) { return sim::serveUnanswered(*this, receiver); }
int SetAudioSourceReqMsg::InvokeHandler(CommObj* receiver) { return sim::serve(*this, receiver); }
int SetAudioSourceRespMsg::InvokeHandler(CommObj* receiver) { return sim::serveUnanswered(*this, receiver); }
