// tev-cli: the console of the appliance.

#include "log/tevlog.h"
#include "shell/CliAppTask.h"
#include "shell/CmdMap.h"
#include "shell/Shell.h"
#include "shell/Terminal.h"

#include <iostream>
#include <unistd.h>

int main() {
  tev::initlog("/tmp/cli.log");
  tev::log << tev::enable << "start of cli" << tev::endl;
  eraseWithBackspace(STDIN_FILENO);

  // The shell's own task. It lives until the process ends, or until `exit` stops it.
  CommObj::SetKey(153190);
  auto* task = new CliAppTask;
  task->go(50, 64000);

  initmap();
  runPromptLoop(std::cin, std::cout);
  return 0;
}
