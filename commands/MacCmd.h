#ifndef TEV_COMMANDS_MACCMD_H
#define TEV_COMMANDS_MACCMD_H

#include "commands/CmdFunctor.h"
#include "commands/Form.h"

/// `mac`: shows or sets the MAC addresses in the identity EEPROM, by a board tool.
class MacCmd : public CmdFunctor {
public:
  static constexpr Form forms[] = {{"", Form::reads}, {"<address>", Form::changes}};

  bool operator()(const ArgVec& args) override;
  const char* getkey() override;
  const char* getlong() override;
  const char* getshort() override;
};

#endif
