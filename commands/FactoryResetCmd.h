#ifndef TEV_COMMANDS_FACTORYRESETCMD_H
#define TEV_COMMANDS_FACTORYRESETCMD_H

#include "commands/CmdFunctor.h"
#include "commands/Form.h"

/// `factory`: asks for the configuration or the firmware to go back to factory defaults.
class FactoryResetCmd : public CmdFunctor {
public:
  static constexpr Form forms[] = {{"config|firmware", Form::changes}};

  bool operator()(const ArgVec& args) override;
  const char* getkey() override;
  const char* getlong() override;
  const char* getshort() override;

  /// Copies the serial number from the identity EEPROM into the property store, as "sn" in the default file. Returns 0,
  /// also if there is no store; -1, with the reason logged on the root logger, if the EEPROM cannot be read.
  int putSn();
};

#endif
