#ifndef TEV_MESSAGING_STREAMCONTROLREQMSG_H
#define TEV_MESSAGING_STREAMCONTROLREQMSG_H

#include "messaging/StreamControlRespMsg.h"

/// Asks the streaming service to start or stop the stream.
class StreamControlReqMsg : public MsgOf<StreamControlReqMsg, StreamControlRespMsg> {
public:
  static const MsgLayout layout;

  using MsgOf::MsgOf;

  /// One of protocol::streamControl.
  void SetControl(unsigned short value) { setWord(0, value); }
  unsigned short GetControl() const { return word(0); }

  /// One of protocol::streamType.
  void SetType(unsigned short value) { setWord(1, value); }
  unsigned short GetType() const { return word(1); }

  int InvokeHandler(CommObj* receiver) override;
};

#endif
