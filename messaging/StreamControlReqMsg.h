#ifndef TEV_MESSAGING_STREAMCONTROLREQMSG_H
#define TEV_MESSAGING_STREAMCONTROLREQMSG_H

#include "messaging/StreamControlRespMsg.h"

/// Asks the streaming service to start or stop the stream.
class StreamControlReqMsg : public MsgOf<StreamControlReqMsg, StreamControlRespMsg> {
public:
  static const MsgLayout layout;

  using MsgOf::MsgOf;

  void SetControl(unsigned short value) { setWord(0, value); } ///< 1 start, 2 stop.
  void SetType(unsigned short value) { setWord(1, value); }    ///< 1 audio, 2 video, 3 both.

  int InvokeHandler(CommObj* receiver) override;
};

#endif
