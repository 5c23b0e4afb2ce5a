#ifndef TEV_COMMANDS_FANCMD_H
#define TEV_COMMANDS_FANCMD_H

#include "commands/CmdFunctor.h"

/// `fan`: shows the fan setting and its speed in revolutions per minute, or sets the fan setting.
class FanCmd : public CmdFunctor {
public:
  bool operator()(const ArgVec& args) override;
  const char* getkey() override;
  const char* getlong() override;
  const char* getshort() override;
};

#endif
