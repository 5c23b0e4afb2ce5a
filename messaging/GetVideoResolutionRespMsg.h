#ifndef TEV_MESSAGING_GETVIDEORESOLUTIONRESPMSG_H
#define TEV_MESSAGING_GETVIDEORESOLUTIONRESPMSG_H

#include "messaging/MsgOf.h"

/// Answers GetVideoResolutionReqMsg.
class GetVideoResolutionRespMsg : public MsgOf<GetVideoResolutionRespMsg> {
public:
  static const MsgLayout layout;

  using MsgOf::MsgOf;
  GetVideoResolutionRespMsg(unsigned long srcTid, unsigned long dstTid, unsigned short status);

  unsigned short GetHorizontal() const { return word(1); } ///< Pixels.
  unsigned short GetVertical() const { return word(2); }   ///< Lines.
  unsigned short GetQualifier() const { return word(3); }  ///< 1 progressive, 2 interlaced.
  unsigned short GetHertz() const { return word(4); }      ///< Frames a second.

  int InvokeHandler(CommObj* receiver) override;
};

#endif
