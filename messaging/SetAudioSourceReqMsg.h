#ifndef TEV_MESSAGING_SETAUDIOSOURCEREQMSG_H
#define TEV_MESSAGING_SETAUDIOSOURCEREQMSG_H

#include "messaging/SetAudioSourceRespMsg.h"

#include <string>

/// Asks the video service to select the audio input.
class SetAudioSourceReqMsg : public MsgOf<SetAudioSourceReqMsg, SetAudioSourceRespMsg> {
public:
  static const MsgLayout layout;

  using MsgOf::MsgOf;

  /// One of protocol::audioSource.
  void SetAudioSource(unsigned short value) { setWord(0, value); }
  unsigned short GetAudioSource() const { return word(0); }

  /// The source number of "digital" or "analog"; that of "digital" for any other text.
  static unsigned short MapString2AudioSource(const std::string& name);

  int InvokeHandler(CommObj* receiver) override;
};

#endif
