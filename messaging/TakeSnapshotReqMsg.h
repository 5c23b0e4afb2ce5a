#ifndef TEV_MESSAGING_TAKESNAPSHOTREQMSG_H
#define TEV_MESSAGING_TAKESNAPSHOTREQMSG_H

#include "messaging/TakeSnapshotRespMsg.h"

/// Asks the video service for a JPEG snapshot.
class TakeSnapshotReqMsg : public MsgOf<TakeSnapshotReqMsg, TakeSnapshotRespMsg> {
public:
  static const MsgLayout layout;

  using MsgOf::MsgOf;

  /// From protocol::snapshot::firstSlot to lastSlot.
  void SetSlot(unsigned short value) { setWord(0, value); }
  unsigned short GetSlot() const { return word(0); }

  /// From protocol::snapshot::smallestScale to fullScale.
  void SetScale(unsigned short value) { setWord(1, value); }
  unsigned short GetScale() const { return word(1); }

  int InvokeHandler(CommObj* receiver) override;
};

#endif
