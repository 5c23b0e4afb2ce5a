#ifndef TEV_MESSAGING_GETVIDEORESOLUTIONREQMSG_H
#define TEV_MESSAGING_GETVIDEORESOLUTIONREQMSG_H

#include "messaging/GetVideoResolutionRespMsg.h"

/// Asks the video service for the current resolution.
class GetVideoResolutionReqMsg : public MsgOf<GetVideoResolutionReqMsg, GetVideoResolutionRespMsg> {
public:
  static const MsgLayout layout;

  using MsgOf::MsgOf;

  int InvokeHandler(CommObj* receiver) override;
};

#endif
