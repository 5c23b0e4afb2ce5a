#ifndef TEV_MESSAGING_STREAMCONTROLRESPMSG_H
#define TEV_MESSAGING_STREAMCONTROLRESPMSG_H

#include "messaging/ResponseOf.h"

/// Answers StreamControlReqMsg.
class StreamControlRespMsg : public ResponseOf<StreamControlRespMsg> {
public:
  static const MsgLayout layout;

  using ResponseOf::ResponseOf;

  int InvokeHandler(CommObj* receiver) override;
};

#endif
