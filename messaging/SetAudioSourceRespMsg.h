#ifndef TEV_MESSAGING_SETAUDIOSOURCERESPMSG_H
#define TEV_MESSAGING_SETAUDIOSOURCERESPMSG_H

#include "messaging/MsgOf.h"

/// Answers SetAudioSourceReqMsg.
class SetAudioSourceRespMsg : public MsgOf<SetAudioSourceRespMsg> {
public:
  static const MsgLayout layout;

  using MsgOf::MsgOf;
  SetAudioSourceRespMsg(unsigned long srcTid, unsigned long dstTid, unsigned short status);

  int InvokeHandler(CommObj* receiver) override;
};

#endif
