#ifndef TEV_MESSAGING_TAKESNAPSHOTRESPMSG_H
#define TEV_MESSAGING_TAKESNAPSHOTRESPMSG_H

#include "messaging/MsgOf.h"

/// Answers TakeSnapshotReqMsg.
class TakeSnapshotRespMsg : public MsgOf<TakeSnapshotRespMsg> {
public:
  static const MsgLayout layout;
  static constexpr size_t statusWord = 0;

  using MsgOf::MsgOf;

  MsgObj* Create(const void* buffer) override; ///< also traces on the standard error stream
  int InvokeHandler(CommObj* receiver) override;
};

#endif
