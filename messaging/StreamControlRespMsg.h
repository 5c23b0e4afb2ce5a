#ifndef TEV_MESSAGING_STREAMCONTROLRESPMSG_H
#define TEV_MESSAGING_STREAMCONTROLRESPMSG_H

#include "messaging/MsgOf.h"

/// Answers StreamControlReqMsg.
class StreamControlRespMsg : public MsgOf<StreamControlRespMsg> {
public:
  static const MsgLayout layout;
  static constexpr size_t statusWord = 0;

  using MsgOf::MsgOf;

  int InvokeHandler(CommObj* receiver) override;
};

#endif
