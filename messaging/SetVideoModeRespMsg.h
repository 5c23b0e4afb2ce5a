#ifndef TEV_MESSAGING_SETVIDEOMODERESPMSG_H
#define TEV_MESSAGING_SETVIDEOMODERESPMSG_H

#include "messaging/MsgOf.h"

/// Answers SetVideoModeReqMsg.
class SetVideoModeRespMsg : public MsgOf<SetVideoModeRespMsg> {
public:
  static const MsgLayout layout;

  using MsgOf::MsgOf;
  SetVideoModeRespMsg(unsigned long srcTid, unsigned long dstTid, unsigned short status);

  int InvokeHandler(CommObj* receiver) override;
};

#endif
