// tev-cli: the console of the appliance.

#include "shell/Shell.h"
#include "shell/StartUp.h"

#include <iostream>

int main() {
  startShell();
  runPromptLoop(std::cin, std::cout);
  endShell();
  return 0;
}
