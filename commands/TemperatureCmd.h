#ifndef TEV_COMMANDS_TEMPERATURECMD_H
#define TEV_COMMANDS_TEMPERATURECMD_H

#include "commands/CmdFunctor.h"
#include "commands/Form.h"

/// `temperature`: shows the temperature, the alert line and the alert set-point, or sets the set-point.
class TemperatureCmd : public CmdFunctor {
public:
  // The chip takes two characters, so the console's lower and higher settings come out as others.
  static constexpr Form forms[] = {{"", Form::reads}, {"setpoint <2..100>", Form::changes}};

  bool operator()(const ArgVec& args) override;
  const char* getkey() override;
  const char* getlong() override;
  const char* getshort() override;
};

#endif
