#ifndef TEV_MESSAGING_SETVIDEOMODEREQMSG_H
#define TEV_MESSAGING_SETVIDEOMODEREQMSG_H

#include "messaging/SetVideoModeRespMsg.h"

#include <string>

/// Asks the video service to select the kind of input.
class SetVideoModeReqMsg : public MsgOf<SetVideoModeReqMsg, SetVideoModeRespMsg> {
public:
  static const MsgLayout layout;

  using MsgOf::MsgOf;

  /// One of protocol::videoMode.
  void SetMode(unsigned short value) { setWord(0, value); }
  unsigned short GetMode() const { return word(0); }

  /// The mode number of a video format name; that of "hdmi" for any other text.
  static unsigned short MapString2Mode(const std::string& name);

  int InvokeHandler(CommObj* receiver) override;
};

#endif
