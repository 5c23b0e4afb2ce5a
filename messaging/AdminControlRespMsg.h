#ifndef TEV_MESSAGING_ADMINCONTROLRESPMSG_H
#define TEV_MESSAGING_ADMINCONTROLRESPMSG_H

#include "messaging/MsgOf.h"

/// Answers AdminControlReqMsg.
class AdminControlRespMsg : public MsgOf<AdminControlRespMsg> {
public:
  static const MsgLayout layout;
  static constexpr size_t statusWord = 0;

  using MsgOf::MsgOf;
  AdminControlRespMsg(); ///< status 3, until a reply overwrites it

  MsgObj* Create(const void* buffer) override; ///< also traces on the standard error stream
  int InvokeHandler(CommObj* receiver) override;

  friend void populate_msgbuff(void* buffer, int length, const AdminControlRespMsg& message);
};

/// Fills `buffer`, which has room for 4 + size() bytes, with the queue form. `length` is not used.
void populate_msgbuff(void* buffer, int length, const AdminControlRespMsg& message);

#endif
