#ifndef TEV_MESSAGING_SETVIDEORESOLUTIONREQMSG_H
#define TEV_MESSAGING_SETVIDEORESOLUTIONREQMSG_H

#include "messaging/SetVideoResolutionRespMsg.h"

/// Asks the video service to set the resolution.
class SetVideoResolutionReqMsg : public MsgOf<SetVideoResolutionReqMsg, SetVideoResolutionRespMsg> {
public:
  static const MsgLayout layout;

  using MsgOf::MsgOf;

  /// Pixels.
  void SetHorizontal(unsigned short value) { setWord(0, value); }
  unsigned short GetHorizontal() const { return word(0); }

  /// Lines.
  void SetVertical(unsigned short value) { setWord(1, value); }
  unsigned short GetVertical() const { return word(1); }

  /// One of protocol::qualifier.
  void SetQualifier(unsigned short value) { setWord(2, value); }
  unsigned short GetQualifier() const { return word(2); }

  /// Frames a second.
  void SetHertz(unsigned short value) { setWord(3, value); }
  unsigned short GetHertz() const { return word(3); }

  int InvokeHandler(CommObj* receiver) override;
};

#endif
