// tev-cli: the console of the appliance.

#include "log/tevlog.h"
#include "shell/CmdMap.h"
#include "shell/Shell.h"
#include "shell/Terminal.h"

#include <iostream>
#include <unistd.h>

int main() {
  tev::initlog("/tmp/cli.log");
  tev::log << tev::enable << "start of cli" << tev::endl;
  eraseWithBackspace(STDIN_FILENO);
  // The shell's own task starts here, before the registry is built.
  initmap();
  runPromptLoop(std::cin, std::cout);
  return 0;
}
