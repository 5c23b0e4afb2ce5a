#ifndef TEV_MESSAGING_SETLOGGINGMODEREQMSG_H
#define TEV_MESSAGING_SETLOGGINGMODEREQMSG_H

#include "messaging/MsgOf.h"

/// Asks the administration service to switch the services' logging. Nothing answers it.
class SetLoggingModeReqMsg : public MsgOf<SetLoggingModeReqMsg> {
public:
  static const MsgLayout layout;

  using MsgOf::MsgOf;

  /// One of protocol::logging: off, on.
  void SetOnOff(unsigned short value) { setWord(0, value); }
  unsigned short GetOnOff() const { return word(0); }

  /// protocol::logging::allComponents for all.
  void SetComponent(unsigned short value) { setWord(1, value); }
  unsigned short GetComponent() const { return word(1); }

  int InvokeHandler(CommObj* receiver) override;
};

#endif
