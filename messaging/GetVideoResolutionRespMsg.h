#ifndef TEV_MESSAGING_GETVIDEORESOLUTIONRESPMSG_H
#define TEV_MESSAGING_GETVIDEORESOLUTIONRESPMSG_H

#include "messaging/MsgOf.h"

/// Answers GetVideoResolutionReqMsg.
class GetVideoResolutionRespMsg : public MsgOf<GetVideoResolutionRespMsg> {
public:
  static const MsgLayout layout;
  static constexpr size_t statusWord = 0;

  using MsgOf::MsgOf;

  /// Pixels.
  void SetHorizontal(unsigned short value) { setWord(1, value); }
  unsigned short GetHorizontal() const { return word(1); }

  /// Lines.
  void SetVertical(unsigned short value) { setWord(2, value); }
  unsigned short GetVertical() const { return word(2); }

  /// One of protocol::qualifier.
  void SetQualifier(unsigned short value) { setWord(3, value); }
  unsigned short GetQualifier() const { return word(3); }

  /// Frames a second.
  void SetHertz(unsigned short value) { setWord(4, value); }
  unsigned short GetHertz() const { return word(4); }

  /// The standard of the signal, in the numbers of the video service.
  void SetSdpStd(unsigned short value) { setWord(5, value); }
  unsigned short GetSdpStd() const { return word(5); }

  int InvokeHandler(CommObj* receiver) override;
};

#endif
