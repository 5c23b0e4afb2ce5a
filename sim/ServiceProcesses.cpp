#include "sim/ServiceProcesses.h"

#include "messaging/internal/MsgQueue.h"
#include "platform/krTime.h"
#include "sim/SystemError.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <sys/msg.h>
#include <sys/wait.h>

namespace sim {

namespace {

constexpr int startTimeout = 30000; // milliseconds
constexpr int crashLimit = 3;       // a task that ends unexpectedly this often is not restarted

struct QueueText {
  long type = 1;
  char text[512] = {};
};

// Fills a queue with messages of an unknown id.
void fill(int queueId) {
  const QueueText nothing;
  for (const size_t size : {sizeof nothing.text, size_t{1}}) {
    while (msgsnd(queueId, &nothing, size, IPC_NOWAIT) == 0) {
    } // until the queue is full
  }
}

bool hasQueue(const ServiceTask& task) {
  struct msqid_ds about = {};
  return msgctl(task.queueId, IPC_STAT, &about) == 0;
}

bool isFull(const ServiceTask& task) {
  struct msqid_ds about = {};
  return msgctl(task.queueId, IPC_STAT, &about) == 0 && about.msg_cbytes >= about.msg_qbytes;
}

std::string endText(int status) {
  if (WIFEXITED(status)) return "exit status " + std::to_string(WEXITSTATUS(status));
  return "signal " + std::to_string(WTERMSIG(status));
}

std::string errorFile(const ServiceTask& task) { return std::string("/var/log/") + task.name + ".err"; }

std::string errorOutput(const ServiceTask& task) {
  std::string text(4000, '\0');
  const kr::Descriptor errors(open(errorFile(task).c_str(), O_RDONLY | O_CLOEXEC));
  text.resize(static_cast<size_t>(std::max(ssize_t{0}, read(errors.get(), text.data(), text.size()))));
  return text;
}

} // namespace

ServiceProcesses::ServiceProcesses(std::map<std::string, Program> programs,
                                   const std::map<std::string, ServiceFault>& faults, BoardLog& log)
    : _programs(std::move(programs)), _log(log) {
  for (const ServiceTask& task : serviceTasks) {
    const auto found = faults.find(task.name);
    const ServiceFault::Kind fault = found != faults.end() ? found->second.kind : ServiceFault::none;
    if (fault == ServiceFault::absent) {
      // Created first, so that no other queue gets this id. The id 0 also means "no task".
      check(obtainQueueWithId(task.queueId, task.queueKey), task.name);
      check(msgctl(task.queueId, IPC_RMID, nullptr), task.name);
      continue;
    }
    _processes.push_back({&task});
    startFirst(_processes.back());
    if (fault == ServiceFault::full) {
      check(::kill(_processes.back().pid, SIGSTOP), task.name);
      fill(task.queueId);
    }
  }
}

void ServiceProcesses::startFirst(Process& process) {
  start(process);
  for (int waited = 0; !hasQueue(*process.task); ++waited) {
    int status = 0;
    const bool ended = waitpid(process.pid, &status, WNOHANG) == process.pid;
    if (!ended && waited < startTimeout && krThreadSuspend(1) == 0) continue;
    throw std::runtime_error(process.task->name + std::string(" does not start: ") + errorOutput(*process.task));
  }
}

void ServiceProcesses::start(Process& process) {
  process.pid = check(fork(), "fork");
  if (process.pid != 0) return;
  (void)setsid(); // cannot fail in a new process; the terminal's signals do not reach the task
  const kr::Descriptor nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
  const kr::Descriptor file(open(errorFile(*process.task).c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644));
  if (dup2(nothing.get(), 0) < 0 || dup2(file.get(), 1) < 0 || dup2(file.get(), 2) < 0) _exit(126);
  sigset_t term;
  (void)sigemptyset(&term); // none of these three can fail
  (void)sigaddset(&term, SIGTERM);
  (void)sigprocmask(SIG_SETMASK, &term, nullptr); // until the task can be ended by it
  const auto own = _programs.find(process.task->name);
  startProgram(own != _programs.end() ? own->second : _programs.at(""), {"tev-service", process.task->name});
}

void ServiceProcesses::childEnded(pid_t child, int status) {
  for (Process& process : _processes) {
    if (process.pid != child) continue;
    process.pid = -1;
    const bool injected = WIFEXITED(status) && WEXITSTATUS(status) == injectedDeathStatus;
    if (!injected && !(_ending && status == 0)) {
      ++process.crashes;
      _log.add(std::string("service ") + process.task->name + " ended: " + endText(status));
      (void)std::fprintf(stderr, "tev-sim: %s ended: %s\n%s", process.task->name, endText(status).c_str(),
                         errorOutput(*process.task).c_str());
    }
    if (!_ending && process.crashes < crashLimit) start(process);
  }
}

void ServiceProcesses::end() {
  _ending = true;
  for (const Process& process : _processes) {
    // A task that does not empty its queue would not end. Fails only if the task has just ended.
    if (process.pid >= 0) (void)::kill(process.pid, isFull(*process.task) ? SIGKILL : SIGTERM);
  }
}

bool ServiceProcesses::allEnded() const {
  return std::all_of(_processes.begin(), _processes.end(), [](const Process& p) { return p.pid < 0; });
}

void ServiceProcesses::kill() const {
  for (const Process& process : _processes) {
    if (process.pid >= 0) (void)::kill(process.pid, SIGKILL); // fails only if it has just ended
  }
}

} // namespace sim
