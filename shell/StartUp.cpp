#include "shell/StartUp.h"

#include "commands/Console.h"
#include "log/tevlog.h"
#include "messaging/Protocol.h"
#include "shell/CliAppTask.h"
#include "shell/CmdMap.h"
#include "shell/Terminal.h"

#include <cerrno>
#include <csignal>
#include <iostream>
#include <new>
#include <string>
#include <sys/ipc.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// ---- Before the static objects

unsigned consoleDidNotWait = 0; // before: see waitForConsole()

// A signal would end the process where a full disk only loses lines. Programs that the shell starts get the default
// action back, which they would not if the signal were ignored.
void outliveFileSizeLimit() {
  struct sigaction action {};
  if (sigaction(SIGXFSZ, nullptr, &action) != 0 || action.sa_handler != SIG_DFL) return;
  action.sa_handler = [](int) {};
  action.sa_flags = SA_RESTART;
  (void)sigaction(SIGXFSZ, &action, nullptr); // fails only for a signal that does not exist
}

[[gnu::constructor(101)]] void prepareProcess() {
  fillStandardDescriptors();
  // Another program may have left the console non-blocking: a read without a line, and a write to a full buffer, fail
  // then.
  consoleDidNotWait = waitForConsole();
  outliveFileSizeLimit();
}

// After the last output of the static objects.
[[gnu::destructor(101)]] void giveConsoleBack() { stopWaitingForConsole(consoleDidNotWait); }

// Ends the process: without memory the shell cannot start.
[[noreturn]] void cannotStart() {
  static constexpr char text[] = "tev-cli: out of memory\n";
  const ssize_t written = write(STDERR_FILENO, text, sizeof text - 1); // there is no other way to report it
  (void)written;
  giveConsoleBack();
  _exit(1);
}

[[gnu::constructor(102)]] void watchStaticObjects() { std::set_new_handler(cannotStart); }

// ---- After them

// Shells that run at the same time have numbers. The first has the log "/tmp/cli.log" and the queue key of the
// protocol, the others have logs with their numbers and keys that no task of the appliance has.
constexpr int numbered = 9;
constexpr key_t laterKeys = 0x54455600; // "TEV" and the number

std::string logName(int number) { return number == 1 ? "/tmp/cli.log" : "/tmp/cli." + std::to_string(number) + ".log"; }

key_t queueKey(int number) {
  if (number > numbered) return IPC_PRIVATE;
  return number == 1 ? protocol::consoleQueueKey : laterKeys + number;
}

void report(const std::string& text) { printLine(std::cerr, "tev-cli: " + text); }

/// Removes a file that has the name of a log but cannot be one. Root can remove the files of others in /tmp, other
/// users only their own. Devices and directories that are not empty stay.
bool removeObstacle(const char* path) {
  struct stat found {};
  if (lstat(path, &found) != 0) return errno == ENOENT;
  if (S_ISCHR(found.st_mode) || S_ISBLK(found.st_mode)) return false;
  return (S_ISDIR(found.st_mode) ? rmdir(path) : unlink(path)) == 0;
}

/// Opens the trace log and returns the number of this shell. Other users and shells in the way are reported. A log that
/// cannot be opened for another reason, such as a read-only /tmp, is lost silently.
int openTraceLog() {
  std::string obstacle;
  int number = 1;
  for (; number <= numbered; ++number) {
    const std::string name = logName(number);
    tev::initlog(name.c_str());
    if (tev::log.Failure() == EEXIST && removeObstacle(name.c_str())) tev::initlog(name.c_str());
    const int failure = tev::log.Failure();
    if (failure != EBUSY && failure != EEXIST) break;
    if (!obstacle.empty()) continue;
    obstacle = failure == EBUSY ? "another process writes " + name : name + " cannot be replaced by this user's log";
  }
  if (number > 1) {
    report(obstacle + ": this shell has a queue of its own and writes " +
           (number <= numbered ? logName(number) : "no trace log"));
  }
  return number;
}

bool isOwnPipe(const struct stat& file) { return S_ISFIFO(file.st_mode) && file.st_uid == geteuid(); }

void reportObstacles(const CliAppTask& task, bool keyed) {
  if (task.GetQueueOrigin() == QueueOrigin::replaced)
    report("removed another user's queue, which had the key of this shell's");
  else if (task.GetQueueOrigin() == QueueOrigin::unkeyed && keyed)
    report("another user's queue has the key of this shell's: this shell has a queue without a key");
  struct stat found {};
  if (task.GetPipeFd() < 0 && lstat(task.GetPipeName(), &found) == 0 && !isOwnPipe(found))
    report(std::string(task.GetPipeName()) + " cannot be replaced by this shell's pipe: no service can answer");
}

// Lives until the process ends, or until `exit` stops it.
CliAppTask* task = nullptr;

} // namespace

void startShell() {
  std::set_new_handler(nullptr);
  try {
    const int number = openTraceLog();
    tev::log << tev::enable << "start of cli" << tev::endl;
    eraseWithBackspace(STDIN_FILENO);

    const key_t key = queueKey(number);
    CommObj::SetKey(key - 1);
    task = new CliAppTask;
    reportObstacles(*task, key != IPC_PRIVATE);
    task->go(50, 64000);

    initmap();
  } catch (const std::bad_alloc&) {
    cannotStart();
  }
}

void endShell() {
  if (task->GetQueueOrigin() == QueueOrigin::unkeyed) CommObj::StopAll();
}
