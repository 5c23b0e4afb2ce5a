#ifndef TEV_MESSAGING_SETVIDEORESOLUTIONREQMSG_H
#define TEV_MESSAGING_SETVIDEORESOLUTIONREQMSG_H

#include "messaging/SetVideoResolutionRespMsg.h"

/// Asks the video service to set the resolution.
class SetVideoResolutionReqMsg : public MsgOf<SetVideoResolutionReqMsg, SetVideoResolutionRespMsg> {
public:
  static const MsgLayout layout;

  using MsgOf::MsgOf;

  void SetHorizontal(unsigned short value) { setWord(0, value); } ///< Pixels.
  void SetVertical(unsigned short value) { setWord(1, value); }   ///< Lines.
  void SetQualifier(unsigned short value) { setWord(2, value); }  ///< 1 progressive, 2 interlaced.
  void SetHertz(unsigned short value) { setWord(3, value); }      ///< Frames a second.

  int InvokeHandler(CommObj* receiver) override;
};

#endif
