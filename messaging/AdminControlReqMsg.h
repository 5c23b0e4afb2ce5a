#ifndef TEV_MESSAGING_ADMINCONTROLREQMSG_H
#define TEV_MESSAGING_ADMINCONTROLREQMSG_H

#include "messaging/AdminControlRespMsg.h"

/// Asks the administration service to reboot or to go back to factory defaults.
class AdminControlReqMsg : public MsgOf<AdminControlReqMsg, AdminControlRespMsg> {
public:
  static const MsgLayout layout;

  using MsgOf::MsgOf;

  /// One of protocol::adminControl.
  void SetControl(unsigned short value) { setWord(0, value); }
  unsigned short GetControl() const { return word(0); }

  /// 0 for all of these.
  void SetArg1(unsigned short value) { setWord(1, value); }
  unsigned short GetArg1() const { return word(1); }
  void SetArg2(unsigned short value) { setWord(2, value); }
  unsigned short GetArg2() const { return word(2); }
  void SetArg3(unsigned short value) { setWord(3, value); }
  unsigned short GetArg3() const { return word(3); }
  void SetArg4(unsigned short value) { setWord(4, value); }
  unsigned short GetArg4() const { return word(4); }

  int InvokeHandler(CommObj* receiver) override;

  friend void populate_msgbuff(void* buffer, int length, const AdminControlReqMsg& message);
};

/// Fills `buffer`, which has room for 4 + size() bytes, with the queue form. `length` is not used.
void populate_msgbuff(void* buffer, int length, const AdminControlReqMsg& message);

#endif
