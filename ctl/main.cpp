// tevctl: one command of the appliance per call, for scripts.

#include "commands/Console.h"
#include "ctl/CallTask.h"
#include "ctl/Caller.h"
#include "ctl/Ending.h"
#include "log/tevlog.h"
#include "platform/Descriptor.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <iostream>
#include <unistd.h>

// A call keeps no trace log.
[[gnu::init_priority(200)]] tev::tevlog tev::log(nullptr);

namespace {

// Takes the lines away from standard input: board tools must not read them.
FILE* openStandardInput() {
  const int lines = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const kr::Descriptor nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
  if (lines < 0 || !nothing || dup2(nothing.get(), STDIN_FILENO) < 0) return nullptr;
  return fdopen(lines, "r");
}

ExitStatus runBatch(Caller& caller, const std::string& file) {
  FILE* const in = file.empty() ? openStandardInput() : fopen(file.c_str(), "re");
  if (in == nullptr) return caller.systemFailed(file.empty() ? "standard input" : file, errno);
  const ExitStatus status = caller.runBatch(in);
  (void)fclose(in); // it was only read
  return status;
}

ExitStatus act(Caller& caller, const Options& options, const std::string& wrong) {
  if (!wrong.empty()) return caller.wrongOptions(wrong);
  if (options.action == Options::Action::list) return caller.list();
  CallTask::removeLeftovers();
  return options.action == Options::Action::batch ? runBatch(caller, options.batchFile) : caller.run(options.words);
}

int call(Options& options, int argc, char** argv) {
  ending::watch();
  const std::string wrong = options.read(argc, argv);
  if (wrong.empty() && options.action == Options::Action::help) {
    std::cout << Options::helpText << std::flush;
    return std::cout ? exitDone : exitInternal;
  }
  ending::limit(options.timeout);
  Caller caller(options);
  return act(caller, options, wrong);
}

// Needs no memory.
void report(int fd, std::string_view text) {
  const ssize_t written = write(fd, text.data(), text.size());
  (void)written; // there is no other way to report it
}

} // namespace

int main(int argc, char** argv) {
  fillStandardDescriptors();
  const unsigned didNotWait = waitForConsole();
  int status = exitInternal;
  Options options;
  try {
    status = call(options, argc, argv);
  } catch (const std::exception&) { // no memory
    ending::removeGuarded();
    report(STDERR_FILENO, "tevctl: out of memory\n");
    if (options.json)
      report(STDOUT_FILENO, "{\"command\":null,\"outcome\":\"internal\",\"reason\":\"out of memory\"}\n");
  }
  stopWaitingForConsole(didNotWait);
  return status;
}
