#ifndef TEV_MESSAGING_SETVIDEOMODEREQMSG_H
#define TEV_MESSAGING_SETVIDEOMODEREQMSG_H

#include "messaging/SetVideoModeRespMsg.h"

#include <string>

/// Asks the video service to select the kind of input.
class SetVideoModeReqMsg : public MsgOf<SetVideoModeReqMsg, SetVideoModeRespMsg> {
public:
  static const MsgLayout layout;

  using MsgOf::MsgOf;
  SetVideoModeReqMsg(unsigned long srcTid, unsigned long dstTid, unsigned short mode);

  void SetMode(unsigned short value) {
    setWord(0, value);
  } ///< 1 svideo, 2 composite, 3 component, 4 vga, 5 svga, 6 xga, 7 wxga, 8 dvi, 9 hdmi.

  /// The mode number of a video format name; that of "hdmi" for any other text.
  static unsigned short MapString2Mode(const std::string& name);

  int InvokeHandler(CommObj* receiver) override;
};

#endif
