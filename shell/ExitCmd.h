#ifndef TEV_SHELL_EXITCMD_H
#define TEV_SHELL_EXITCMD_H

#include "commands/CmdFunctor.h"

/// `exit`: stops the tasks of the process and ends it. Does not return to the caller.
class ExitCmd : public CmdFunctor {
public:
  bool operator()(const ArgVec& args) override;
  const char* getkey() override;
  const char* getlong() override;
  const char* getshort() override;
};

#endif
