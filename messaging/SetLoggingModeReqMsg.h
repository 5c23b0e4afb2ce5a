#ifndef TEV_MESSAGING_SETLOGGINGMODEREQMSG_H
#define TEV_MESSAGING_SETLOGGINGMODEREQMSG_H

#include "messaging/MsgOf.h"

/// Asks the administration service to switch the services' logging. Nothing answers it.
class SetLoggingModeReqMsg : public MsgOf<SetLoggingModeReqMsg> {
public:
  static const MsgLayout layout;

  using MsgOf::MsgOf;

  void SetOnOff(unsigned short value) { setWord(0, value); }     ///< 0 off, 1 on.
  void SetComponent(unsigned short value) { setWord(1, value); } ///< 255 stands for all.

  int InvokeHandler(CommObj* receiver) override;
};

#endif
