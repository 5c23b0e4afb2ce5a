#include "shell/CmdMap.h"

#include "commands/Commands.h"
#include "shell/ExitCmd.h"

CmdMap gCmdMap;

namespace {

void enter(CmdFunctor* command) {
  // The objects outlive the registry. This keeps them in sight of leak checkers.
  static auto* const all = new std::vector<CmdFunctor*>;
  all->push_back(command);
  gCmdMap[command->getkey()] = command;
}

} // namespace

void initmap() {
  enterCommands(gCmdMap, [](CmdFunctor* command, const Forms&) { enter(command); });
  enter(new ExitCmd);
}
