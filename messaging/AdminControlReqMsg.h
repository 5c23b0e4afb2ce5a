#ifndef TEV_MESSAGING_ADMINCONTROLREQMSG_H
#define TEV_MESSAGING_ADMINCONTROLREQMSG_H

#include "messaging/AdminControlRespMsg.h"

/// Asks the administration service to reboot or to go back to factory defaults.
class AdminControlReqMsg : public MsgOf<AdminControlReqMsg, AdminControlRespMsg> {
public:
  static const MsgLayout layout;

  using MsgOf::MsgOf;

  void SetControl(unsigned short value) {
    setWord(0, value);
  }                                                         ///< 1 reboot, 4 factory configuration, 5 factory firmware.
  void SetArg1(unsigned short value) { setWord(1, value); } ///< 0 for all of these.

  int InvokeHandler(CommObj* receiver) override;

  friend void populate_msgbuff(void* buffer, int length, const AdminControlReqMsg& message);
};

/// Fills `buffer`, which has room for 4 + size() bytes, with the queue form. `length` is not used.
void populate_msgbuff(void* buffer, int length, const AdminControlReqMsg& message);

#endif
