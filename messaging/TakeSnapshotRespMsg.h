#ifndef TEV_MESSAGING_TAKESNAPSHOTRESPMSG_H
#define TEV_MESSAGING_TAKESNAPSHOTRESPMSG_H

#include "messaging/ResponseOf.h"

/// Answers TakeSnapshotReqMsg.
class TakeSnapshotRespMsg : public ResponseOf<TakeSnapshotRespMsg> {
public:
  static const MsgLayout layout;

  using ResponseOf::ResponseOf;

  MsgObj* Create(const void* buffer) override; ///< also traces on the standard error stream
  int InvokeHandler(CommObj* receiver) override;
};

#endif
