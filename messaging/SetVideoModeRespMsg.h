#ifndef TEV_MESSAGING_SETVIDEOMODERESPMSG_H
#define TEV_MESSAGING_SETVIDEOMODERESPMSG_H

#include "messaging/MsgOf.h"

/// Answers SetVideoModeReqMsg.
class SetVideoModeRespMsg : public MsgOf<SetVideoModeRespMsg> {
public:
  static const MsgLayout layout;
  static constexpr size_t statusWord = 0;

  using MsgOf::MsgOf;

  int InvokeHandler(CommObj* receiver) override;
};

#endif
