#ifndef TEV_COMMANDS_TEMPERATURECMD_H
#define TEV_COMMANDS_TEMPERATURECMD_H

#include "commands/CmdFunctor.h"

/// `temperature`: shows the temperature, the alert line and the alert set-point, or sets the set-point.
class TemperatureCmd : public CmdFunctor {
public:
  bool operator()(const ArgVec& args) override;
  const char* getkey() override;
  const char* getlong() override;
  const char* getshort() override;
};

#endif
