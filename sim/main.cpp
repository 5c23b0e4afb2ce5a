// tev-sim: runs a command on a stand-in for the board. This process stays outside; its child is the board's process.
#include "sim/BoardProcess.h"
#include "sim/Job.h"
#include "sim/Launch.h"
#include "sim/Namespaces.h"
#include "sim/StatusView.h"
#include "sim/SystemError.h"

#include <cstdio>
#include <fcntl.h>
#include <sys/socket.h>

namespace sim {

namespace {

constexpr int refusedStatus = 125;

// Opens /dev/null on each closed standard stream, so that no other file gets its number. Sets `closed` for these.
void reserveStandardStreams(bool (&closed)[3]) {
  for (int fd = 0; fd < 3; ++fd) {
    closed[fd] = fcntl(fd, F_GETFD) < 0;
    if (closed[fd]) check(open("/dev/null", O_RDWR), "/dev/null");
  }
}

kr::Descriptor openOutput(const std::string& path, int flags) {
  if (path.empty()) return {};
  return kr::Descriptor(check(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | flags, 0644), path));
}

int launch(const Options& options) {
  BoardInputs inputs;
  reserveStandardStreams(inputs.closed);
  inputs.log = openOutput(options.logFile, O_APPEND);
  inputs.dump = openOutput(options.dumpFile, 0);
  sigset_t all;
  (void)sigfillset(&all);                                     // cannot fail
  (void)pthread_sigmask(SIG_BLOCK, &all, &inputs.signalMask); // fails only for an unknown first argument
  int ends[2] = {-1, -1};
  check(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), "socketpair");
  kr::Descriptor channel(ends[0]);
  inputs.channel = kr::Descriptor(ends[1]);
  if (!options.inPlace) enterNamespaces();
  const pid_t board = check(fork(), "fork");
  if (board == 0) {
    (void)channel.close(); // the parent's end
    return runBoard(options, std::move(inputs));
  }
  inputs = BoardInputs();
  detachStandardStreams();
  // No clean-up after this. New children of this process would belong to the board's process namespace, which has
  // ended: a leak checker, which forks, would fail.
  _exit(waitForBoard(board, channel.get()));
}

} // namespace

} // namespace sim

int main(int argc, char** argv) {
  try {
    const auto parsed = sim::parseOptions({argv + 1, argv + argc});
    if (const std::string* error = std::get_if<std::string>(&parsed)) {
      (void)std::fprintf(stderr, "tev-sim: %s\nTry tev-sim --help.\n", error->c_str());
      return 2;
    }
    const auto& options = std::get<sim::Options>(parsed);
    if (options.help) return std::fputs(sim::helpText, stdout) < 0 || std::fflush(stdout) != 0 ? 1 : 0;
    return options.status ? sim::showStatus(options.pid, options.watch) : sim::launch(options);
  } catch (const std::exception& error) {
    (void)std::fprintf(stderr, "tev-sim: %s\n", error.what());
    return sim::refusedStatus;
  }
}
