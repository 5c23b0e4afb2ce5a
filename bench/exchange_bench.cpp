// A synchronous exchange beside a bare loop of the same system calls, and a line of the trace log beside its one write.
#include "bench/Bench.h"

#include "log/tevlog.h"
#include "messaging/CommObj.h"
#include "messaging/SetVideoModeReqMsg.h"
#include "messaging/SetVideoModeRespMsg.h"
#include "messaging/internal/MsgQueue.h"

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/prctl.h>
#include <sys/select.h>
#include <unistd.h>

namespace {

constexpr char traceLine[] = "MsgObj::send()[isReqSyncMsg/remote] - before pSourceCommObj->ReadReplyMsg(...)";

// The console's endpoint, and a service in another process that answers whatever comes.
struct Exchange {
  CommObj* console;
  int serviceQueue;

  static const Exchange& get() {
    static const Exchange exchange;
    return exchange;
  }

private:
  Exchange() : console(nullptr), serviceQueue(msgget(IPC_PRIVATE, 0600)) {
    tev::initlog("/tmp/tev-bench.log");
    tev::log << tev::enable;
    console = new CommObj("tCliAppTask");
    if (fork() != 0) return;
    (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
    const SetVideoModeRespMsg reply(console->GetTaskId(), console->GetTaskId(), 0);
    char buffer[msgTypeSize + msgTextMax];
    while (receiveFromQueue(serviceQueue, buffer) >= 0) {
      if (write(console->GetPipeFd(), reply.image(), reply.size()) < 0) break;
    }
    _exit(1);
  }
};

void exchangeOurs(benchmark::State& state) {
  const Exchange& exchange = Exchange::get();
  for (auto _ : state) {
    auto* request =
        new SetVideoModeReqMsg(exchange.console->GetTaskId(), static_cast<unsigned long>(exchange.serviceQueue));
    request->SetSync();
    request->SetRemote();
    if (std::unique_ptr<MsgObj>(request->Send()) == nullptr) state.SkipWithError("no reply");
  }
}

int waitReadable(int fd, long seconds, long microseconds) {
  fd_set readable;
  FD_ZERO(&readable);
  FD_SET(fd, &readable);
  struct timeval timeout = {seconds, microseconds};
  return select(fd + 1, &readable, nullptr, nullptr, &timeout);
}

void exchangePeer(benchmark::State& state) {
  const Exchange& exchange = Exchange::get();
  const int fd = exchange.console->GetPipeFd();
  struct {
    long type;
    char text[20];
  } message = {5, {}};
  char reply[20];
  for (auto _ : state) {
    if (waitReadable(fd, 0, 1000) != 0 || msgsnd(exchange.serviceQueue, &message, sizeof message.text, 0) != 0 ||
        waitReadable(fd, 3, 0) != 1 || read(fd, reply, sizeof reply) != sizeof reply)
      state.SkipWithError("no reply");
  }
}

void traceOurs(benchmark::State& state) {
  tev::initlog("/tmp/tev-bench.log"); // empty, as the peer's file
  tev::log << tev::enable;
  for (auto _ : state)
    tev::log << traceLine << tev::endl;
}

void tracePeer(benchmark::State& state) {
  const int fd = open("/tmp/tev-bench-bare.log", O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  char line[sizeof traceLine];
  std::memcpy(line, traceLine, sizeof line);
  line[sizeof line - 1] = '\n';
  for (auto _ : state) {
    if (write(fd, line, sizeof line) != sizeof line) state.SkipWithError("not written");
  }
  close(fd);
}

const bool registered = [] {
  bench::compare("synchronous exchange, wall time", "bare msgsnd, select, read", {1.02, 1, bench::Clock::wall, 50},
                 exchangeOurs, exchangePeer);
  bench::compare("synchronous exchange, processor time", "bare msgsnd, select, read",
                 {1.25, 1, bench::Clock::processor, 50}, exchangeOurs, exchangePeer);
  bench::compare("trace line with its flush", "one write of the line", {1.10, 1, bench::Clock::wall, 20'000}, traceOurs,
                 tracePeer);
  return true;
}();

} // namespace
