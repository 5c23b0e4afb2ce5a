#ifndef TEV_MESSAGING_SETAUDIOSOURCERESPMSG_H
#define TEV_MESSAGING_SETAUDIOSOURCERESPMSG_H

#include "messaging/MsgOf.h"

/// Answers SetAudioSourceReqMsg.
class SetAudioSourceRespMsg : public MsgOf<SetAudioSourceRespMsg> {
public:
  static const MsgLayout layout;
  static constexpr size_t statusWord = 0;

  using MsgOf::MsgOf;

  int InvokeHandler(CommObj* receiver) override;
};

#endif
