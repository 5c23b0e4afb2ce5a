#ifndef TEV_MESSAGING_SETVIDEORESOLUTIONRESPMSG_H
#define TEV_MESSAGING_SETVIDEORESOLUTIONRESPMSG_H

#include "messaging/ResponseOf.h"

/// Answers SetVideoResolutionReqMsg.
class SetVideoResolutionRespMsg : public ResponseOf<SetVideoResolutionRespMsg> {
public:
  static const MsgLayout layout;

  using ResponseOf::ResponseOf;

  int InvokeHandler(CommObj* receiver) override;
};

#endif
