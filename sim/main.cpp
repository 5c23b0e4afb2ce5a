// tev-sim: runs a command on a stand-in for the board. This process stays outside; its child becomes the board.
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

// Keeps our own files away from the numbers of the standard streams; true where one was closed.
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
  BoardInputs inside;
  reserveStandardStreams(inside.closed);
  inside.log = openOutput(options.logFile, O_APPEND);
  inside.dump = openOutput(options.dumpFile, 0);
  sigset_t all;
  (void)sigfillset(&all);                                     // cannot fail
  (void)pthread_sigmask(SIG_BLOCK, &all, &inside.signalMask); // fails only for an unknown first argument
  int ends[2] = {-1, -1};
  check(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), "socketpair");
  kr::Descriptor channel(ends[0]);
  inside.channel = kr::Descriptor(ends[1]);
  enterNamespaces();
  const pid_t board = check(fork(), "fork");
  if (board == 0) {
    (void)channel.close(); // the end of the other process
    return runBoard(options, std::move(inside));
  }
  inside = BoardInputs();
  detachStandardStreams();
  // No clean-up after this: whatever starts a process for it (a leak checker does) would fail, because this process
  // can have children only in the board's namespaces, and those have gone.
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
