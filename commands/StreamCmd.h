#ifndef TEV_COMMANDS_STREAMCMD_H
#define TEV_COMMANDS_STREAMCMD_H

#include "commands/CmdFunctor.h"
#include "commands/Form.h"

/// `stream`: starts or stops the stream, or shows whether one is running.
class StreamCmd : public CmdFunctor {
public:
  static constexpr Form forms[] = {{"", Form::reads},
                                   {"status|?", Form::reads},
                                   {"start|stop", Form::changes},
                                   {"start|stop audio|video|both", Form::changes}};

  bool operator()(const ArgVec& args) override;
  const char* getkey() override;
  const char* getlong() override;
  const char* getshort() override;
};

#endif
