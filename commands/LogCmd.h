#ifndef TEV_COMMANDS_LOGCMD_H
#define TEV_COMMANDS_LOGCMD_H

#include "commands/CmdFunctor.h"
#include "commands/Form.h"

/// `log`: switches the logging of the services.
class LogCmd : public CmdFunctor {
public:
  static constexpr Form forms[] = {{"enable|disable all", Form::changes}};

  bool operator()(const ArgVec& args) override;
  const char* getkey() override;
  const char* getlong() override;
  const char* getshort() override;
};

#endif
