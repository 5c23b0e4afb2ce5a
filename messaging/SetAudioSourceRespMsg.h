#ifndef TEV_MESSAGING_SETAUDIOSOURCERESPMSG_H
#define TEV_MESSAGING_SETAUDIOSOURCERESPMSG_H

#include "messaging/ResponseOf.h"

/// Answers SetAudioSourceReqMsg.
class SetAudioSourceRespMsg : public ResponseOf<SetAudioSourceRespMsg> {
public:
  static const MsgLayout layout;

  using ResponseOf::ResponseOf;

  int InvokeHandler(CommObj* receiver) override;
};

#endif
