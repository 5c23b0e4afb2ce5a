#ifndef TEV_SHELL_VERSIONCMD_H
#define TEV_SHELL_VERSIONCMD_H

#include "commands/CmdFunctor.h"

/// `version`: the firmware version.
class VersionCmd : public CmdFunctor {
public:
  bool operator()(const ArgVec& args) override;
  const char* getkey() override;
  const char* getlong() override;
  const char* getshort() override;
};

#endif
