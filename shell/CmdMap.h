// The command registry.
#ifndef TEV_SHELL_CMDMAP_H
#define TEV_SHELL_CMDMAP_H

#include "commands/CmdFunctor.h"

/// All commands by key. Empty until initmap(); the objects live until the process ends.
extern CmdMap gCmdMap;

/// Creates one object of every command class and enters it under its key. Called once, by main.
void initmap();

#endif
