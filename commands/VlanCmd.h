#ifndef TEV_COMMANDS_VLANCMD_H
#define TEV_COMMANDS_VLANCMD_H

#include "commands/CmdFunctor.h"
#include "commands/Form.h"

/// `vlan`: switches the VLAN mode of the Ethernet switch.
class VlanCmd : public CmdFunctor {
public:
  static constexpr Form forms[] = {{"on|off", Form::changes}};

  bool operator()(const ArgVec& args) override;
  const char* getkey() override;
  const char* getlong() override;
  const char* getshort() override;
};

#endif
