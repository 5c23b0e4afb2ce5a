// All commands that do not belong to one program.
#ifndef TEV_COMMANDS_COMMANDS_H
#define TEV_COMMANDS_COMMANDS_H

#include "commands/AudioSourceCmd.h"
#include "commands/FactoryResetCmd.h"
#include "commands/FanCmd.h"
#include "commands/HelpCmd.h"
#include "commands/LogCmd.h"
#include "commands/MacCmd.h"
#include "commands/RebootCmd.h"
#include "commands/SerialNumberCmd.h"
#include "commands/StreamCmd.h"
#include "commands/TakeSnapshotCmd.h"
#include "commands/TemperatureCmd.h"
#include "commands/VersionCmd.h"
#include "commands/VideoFormatCmd.h"
#include "commands/VideoResolutionCmd.h"
#include "commands/VlanCmd.h"

/// Calls enter(command, forms) with a new object of every command class and the class's table of words. The objects are
/// never deleted. `all` is what `help` lists; it must outlive them.
template <class Enter>
void enterCommands(const CmdMap& all, Enter enter) {
  enter(new HelpCmd(all), HelpCmd::forms);
  enter(new AudioSourceCmd, AudioSourceCmd::forms);
  enter(new MacCmd, MacCmd::forms);
  enter(new SerialNumberCmd, SerialNumberCmd::forms);
  enter(new TemperatureCmd, TemperatureCmd::forms);
  enter(new FanCmd, FanCmd::forms);
  enter(new VlanCmd, VlanCmd::forms);
  enter(new FactoryResetCmd, FactoryResetCmd::forms);
  enter(new LogCmd, LogCmd::forms);
  enter(new StreamCmd, StreamCmd::forms);
  enter(new TakeSnapshotCmd, TakeSnapshotCmd::forms);
  enter(new VideoFormatCmd, VideoFormatCmd::forms);
  enter(new VideoResolutionCmd, VideoResolutionCmd::forms);
  enter(new RebootCmd, RebootCmd::forms);
  enter(new VersionCmd, VersionCmd::forms);
}

#endif
