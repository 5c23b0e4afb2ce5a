#ifndef TEV_MESSAGING_SETVIDEORESOLUTIONRESPMSG_H
#define TEV_MESSAGING_SETVIDEORESOLUTIONRESPMSG_H

#include "messaging/MsgOf.h"

/// Answers SetVideoResolutionReqMsg.
class SetVideoResolutionRespMsg : public MsgOf<SetVideoResolutionRespMsg> {
public:
  static const MsgLayout layout;
  static constexpr size_t statusWord = 0;

  using MsgOf::MsgOf;

  int InvokeHandler(CommObj* receiver) override;
};

#endif
