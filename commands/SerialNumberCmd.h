#ifndef TEV_COMMANDS_SERIALNUMBERCMD_H
#define TEV_COMMANDS_SERIALNUMBERCMD_H

#include "commands/CmdFunctor.h"
#include "commands/Form.h"

/// `serialnum`: shows or sets the serial number in the identity EEPROM, by a board tool.
class SerialNumberCmd : public CmdFunctor {
public:
  static constexpr Form forms[] = {{"", Form::reads}, {"<serial>", Form::changes}};

  bool operator()(const ArgVec& args) override;
  const char* getkey() override;
  const char* getlong() override;
  const char* getshort() override;
};

#endif
