#ifndef TEV_COMMANDS_VERSIONCMD_H
#define TEV_COMMANDS_VERSIONCMD_H

#include "commands/CmdFunctor.h"
#include "commands/Form.h"

/// `version`: the firmware version.
class VersionCmd : public CmdFunctor {
public:
  static constexpr Form forms[] = {{"", Form::reads}};

  bool operator()(const ArgVec& args) override;
  const char* getkey() override;
  const char* getlong() override;
  const char* getshort() override;
};

#endif
