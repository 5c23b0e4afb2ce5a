#ifndef TEV_MESSAGING_SETVIDEORESOLUTIONRESPMSG_H
#define TEV_MESSAGING_SETVIDEORESOLUTIONRESPMSG_H

#include "messaging/MsgOf.h"

/// Answers SetVideoResolutionReqMsg.
class SetVideoResolutionRespMsg : public MsgOf<SetVideoResolutionRespMsg> {
public:
  static const MsgLayout layout;

  using MsgOf::MsgOf;
  SetVideoResolutionRespMsg(unsigned long srcTid, unsigned long dstTid, unsigned short status);

  int InvokeHandler(CommObj* receiver) override;
};

#endif
