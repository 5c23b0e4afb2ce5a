// tev-cli: the console of the appliance.

#include "log/tevlog.h"
#include "shell/CliAppTask.h"
#include "shell/CmdMap.h"
#include "shell/Shell.h"
#include "shell/Terminal.h"

#include <iostream>
#include <new>
#include <unistd.h>

namespace {

// Without memory there is no start: half a shell is of no use.
[[noreturn]] void cannotStart() {
  static constexpr char text[] = "tev-cli: out of memory\n";
  const ssize_t written = write(STDERR_FILENO, text, sizeof text - 1); // there is nobody else to tell
  (void)written;
  _exit(1);
}

// Static objects cannot catch what they throw. This comes before all of them, and after the standard descriptors are
// sure to be open.
__attribute__((constructor(102))) void watchStaticObjects() { std::set_new_handler(cannotStart); }

void start() {
  tev::initlog("/tmp/cli.log");
  tev::log << tev::enable << "start of cli" << tev::endl;
  eraseWithBackspace(STDIN_FILENO);

  // The shell's own task. It lives until the process ends, or until `exit` stops it.
  CommObj::SetKey(153190);
  auto* task = new CliAppTask;
  task->go(50, 64000);

  initmap();
}

} // namespace

int main() {
  std::set_new_handler(nullptr);
  try {
    start();
  } catch (const std::bad_alloc&) {
    cannotStart();
  }
  runPromptLoop(std::cin, std::cout);
  return 0;
}
