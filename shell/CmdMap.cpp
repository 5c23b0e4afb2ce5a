#include "shell/CmdMap.h"

#include "commands/FanCmd.h"
#include "commands/MacCmd.h"
#include "commands/SerialNumberCmd.h"
#include "commands/TemperatureCmd.h"
#include "commands/VlanCmd.h"
#include "shell/HelpCmd.h"
#include "shell/VersionCmd.h"

CmdMap gCmdMap;

namespace {

void enter(CmdFunctor* command) { gCmdMap[command->getkey()] = command; }

} // namespace

void initmap() {
  enter(new HelpCmd(gCmdMap));
  enter(new MacCmd);
  enter(new SerialNumberCmd);
  enter(new TemperatureCmd);
  enter(new FanCmd);
  enter(new VlanCmd);
  enter(new VersionCmd);
}
