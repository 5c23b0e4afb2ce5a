#ifndef TEV_COMMANDS_FANCMD_H
#define TEV_COMMANDS_FANCMD_H

#include "commands/CmdFunctor.h"
#include "commands/Form.h"

/// `fan`: shows the fan setting and its speed in revolutions per minute, or sets the fan setting.
class FanCmd : public CmdFunctor {
public:
  static constexpr Form forms[] = {{"", Form::reads}, {"speed <setting>", Form::changes}};

  bool operator()(const ArgVec& args) override;
  const char* getkey() override;
  const char* getlong() override;
  const char* getshort() override;
};

#endif
