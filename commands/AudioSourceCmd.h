#ifndef TEV_COMMANDS_AUDIOSOURCECMD_H
#define TEV_COMMANDS_AUDIOSOURCECMD_H

#include "commands/CmdFunctor.h"
#include "commands/Form.h"

/// `audio-source`: selects the audio input.
class AudioSourceCmd : public CmdFunctor {
public:
  static constexpr Form forms[] = {{"", Form::reads}, {"status|?", Form::reads}, {"digital|analog", Form::changes}};

  bool operator()(const ArgVec& args) override;
  const char* getkey() override;
  const char* getlong() override;
  const char* getshort() override;
};

#endif
