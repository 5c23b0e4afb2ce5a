#ifndef TEV_MESSAGING_TAKESNAPSHOTREQMSG_H
#define TEV_MESSAGING_TAKESNAPSHOTREQMSG_H

#include "messaging/TakeSnapshotRespMsg.h"

/// Asks the video service for a JPEG snapshot.
class TakeSnapshotReqMsg : public MsgOf<TakeSnapshotReqMsg, TakeSnapshotRespMsg> {
public:
  static const MsgLayout layout;

  using MsgOf::MsgOf;

  void SetSlot(unsigned short value) { setWord(0, value); }  ///< 1 to 16.
  void SetScale(unsigned short value) { setWord(1, value); } ///< 1 to 8; 8 is full scale.

  int InvokeHandler(CommObj* receiver) override;
};

#endif
