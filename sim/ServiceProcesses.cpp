#include "sim/ServiceProcesses.h"

#include "sim/SystemError.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <sys/msg.h>
#include <sys/wait.h>

namespace sim {

namespace {

constexpr int crashLimit = 3; // a task that ends unexpectedly this often is not restarted

struct QueueText {
  long type = 1;
  char text[512] = {};
};

// In a new IPC namespace msg_next_id sets the id of the next queue.
void makeQueue(const ServiceTask& task) {
  constexpr char nextQueueId[] = "/proc/sys/kernel/msg_next_id";
  const std::string number = std::to_string(task.queueId);
  const kr::Descriptor next(check(open(nextQueueId, O_WRONLY | O_CLOEXEC), nextQueueId));
  check(write(next.get(), number.data(), number.size()), nextQueueId);
  const int id = check(msgget(task.queueKey, IPC_CREAT | IPC_EXCL | 0660), task.name);
  if (id != task.queueId) throw std::runtime_error(task.name + std::string(": the queue has another id"));
}

// Fills a queue with messages of an unknown id.
void fill(int queueId) {
  const QueueText nothing;
  for (const size_t size : {sizeof nothing.text, size_t{1}}) {
    while (msgsnd(queueId, &nothing, size, IPC_NOWAIT) == 0) {
    } // until the queue is full
  }
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

ServiceProcesses::ServiceProcesses(Program program, const std::map<std::string, ServiceFault>& faults, BoardLog& log)
    : _program(std::move(program)), _log(log) {
  for (const ServiceTask& task : serviceTasks) {
    const auto found = faults.find(task.name);
    const ServiceFault::Kind fault = found != faults.end() ? found->second.kind : ServiceFault::none;
    makeQueue(task);
    if (fault == ServiceFault::absent) {
      // Created first, so that no other queue gets this id. The id 0 also means "no task".
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
  int ends[2] = {-1, -1};
  check(pipe2(ends, O_CLOEXEC), "pipe");
  const kr::Descriptor readySignal(ends[0]);
  kr::Descriptor ready(ends[1]);
  start(process, ready.get());
  (void)ready.close(); // so that read() returns 0 if the task ends
  char byte = 0;
  if (read(readySignal.get(), &byte, 1) == 1) return;
  throw std::runtime_error(process.task->name + std::string(" does not start: ") + errorOutput(*process.task));
}

// `ready` becomes the standard output of the task.
void ServiceProcesses::start(Process& process, int ready) {
  process.pid = check(fork(), "fork");
  if (process.pid != 0) return;
  (void)setsid(); // cannot fail in a new process; the terminal's signals do not reach the task
  const kr::Descriptor nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
  const kr::Descriptor file(open(errorFile(*process.task).c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644));
  if (dup2(nothing.get(), 0) < 0 || dup2(ready, 1) < 0 || dup2(file.get(), 2) < 0) _exit(126);
  sigset_t term;
  (void)sigemptyset(&term); // none of these three can fail
  (void)sigaddset(&term, SIGTERM);
  (void)sigprocmask(SIG_SETMASK, &term, nullptr);
  startProgram(_program, {"tev-service", process.task->name});
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
    if (!_ending && process.crashes < crashLimit) start(process, STDOUT_FILENO);
  }
}

void ServiceProcesses::end() {
  _ending = true;
  QueueText last;
  last.text[0] = static_cast<char>(endMessageId >> 8U);
  last.text[1] = static_cast<char>(endMessageId & 0xffU);
  for (const Process& process : _processes) {
    if (process.pid < 0) continue;
    // A task with a full or removed queue would not receive the message.
    const bool queued = msgsnd(process.task->queueId, &last, sizeof(uint16_t), IPC_NOWAIT) == 0;
    (void)::kill(process.pid,
                 queued ? SIGTERM : SIGKILL); // SIGTERM ends a pause; fails only if the task has just ended
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
