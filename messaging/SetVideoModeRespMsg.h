#ifndef TEV_MESSAGING_SETVIDEOMODERESPMSG_H
#define TEV_MESSAGING_SETVIDEOMODERESPMSG_H

#include "messaging/ResponseOf.h"

/// Answers SetVideoModeReqMsg.
class SetVideoModeRespMsg : public ResponseOf<SetVideoModeRespMsg> {
public:
  static const MsgLayout layout;

  using ResponseOf::ResponseOf;

  int InvokeHandler(CommObj* receiver) override;
};

#endif
