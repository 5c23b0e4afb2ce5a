#ifndef TEV_MESSAGING_STREAMCONTROLRESPMSG_H
#define TEV_MESSAGING_STREAMCONTROLRESPMSG_H

#include "messaging/MsgOf.h"

/// Answers StreamControlReqMsg.
class StreamControlRespMsg : public MsgOf<StreamControlRespMsg> {
public:
  static const MsgLayout layout;

  using MsgOf::MsgOf;
  StreamControlRespMsg(unsigned long srcTid, unsigned long dstTid, unsigned short status);

  int InvokeHandler(CommObj* receiver) override;
};

#endif
