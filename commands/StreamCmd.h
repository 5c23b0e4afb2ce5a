#ifndef TEV_COMMANDS_STREAMCMD_H
#define TEV_COMMANDS_STREAMCMD_H

#include "commands/CmdFunctor.h"

/// `stream`: starts or stops the stream, or shows whether one is running.
class StreamCmd : public CmdFunctor {
public:
  bool operator()(const ArgVec& args) override;
  const char* getkey() override;
  const char* getlong() override;
  const char* getshort() override;
};

#endif
