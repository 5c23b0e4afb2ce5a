#ifndef TEV_COMMANDS_REBOOTCMD_H
#define TEV_COMMANDS_REBOOTCMD_H

#include "commands/CmdFunctor.h"
#include "commands/Form.h"

/// `reboot`: asks for a reboot of the appliance. Words after the key are ignored.
class RebootCmd : public CmdFunctor {
public:
  static constexpr Form forms[] = {{"", Form::changes}};

  bool operator()(const ArgVec& args) override;
  const char* getkey() override;
  const char* getlong() override;
  const char* getshort() override;
};

#endif
