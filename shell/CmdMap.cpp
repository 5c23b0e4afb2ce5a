#include "shell/CmdMap.h"

#include "commands/AudioSourceCmd.h"
#include "commands/FactoryResetCmd.h"
#include "commands/FanCmd.h"
#include "commands/LogCmd.h"
#include "commands/MacCmd.h"
#include "commands/RebootCmd.h"
#include "commands/SerialNumberCmd.h"
#include "commands/StreamCmd.h"
#include "commands/TakeSnapshotCmd.h"
#include "commands/TemperatureCmd.h"
#include "commands/VideoFormatCmd.h"
#include "commands/VideoResolutionCmd.h"
#include "commands/VlanCmd.h"
#include "shell/ExitCmd.h"
#include "shell/HelpCmd.h"
#include "shell/VersionCmd.h"

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
  enter(new HelpCmd(gCmdMap));
  enter(new AudioSourceCmd);
  enter(new MacCmd);
  enter(new SerialNumberCmd);
  enter(new TemperatureCmd);
  enter(new FanCmd);
  enter(new VlanCmd);
  enter(new FactoryResetCmd);
  enter(new LogCmd);
  enter(new StreamCmd);
  enter(new TakeSnapshotCmd);
  enter(new VideoFormatCmd);
  enter(new VideoResolutionCmd);
  enter(new RebootCmd);
  enter(new VersionCmd);
  enter(new ExitCmd);
}
