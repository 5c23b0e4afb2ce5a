#include "ctl/Ending.h"

#include "ctl/ExitStatus.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <sys/msg.h>
#include <sys/time.h>
#include <unistd.h>

namespace ending {

namespace {

// All of this is read by signal handlers. A length of 0 means that the text is not to be used.
struct Text {
  char bytes[1024];
  volatile sig_atomic_t length;

  void set(const std::string& text) {
    length = 0;
    if (text.size() > sizeof bytes) return;
    std::memcpy(bytes, text.data(), text.size());
    length = static_cast<sig_atomic_t>(text.size());
  }
};

volatile sig_atomic_t queue = -1;
char pipePath[48];
Text lastError, lastOutput;
volatile sig_atomic_t outputFd = STDOUT_FILENO, errorFd = STDERR_FILENO;

void writeLast(int fd, const char* text, sig_atomic_t length) {
  const ssize_t written = write(fd, text, static_cast<size_t>(length));
  (void)written; // the process ends
}

void endBySignal(int number) {
  removeGuarded();
  (void)signal(number, SIG_DFL); // can only fail for a signal that does not exist
  (void)raise(number);           // takes effect when this handler returns
}

void endInTime(int) {
  static constexpr char plain[] = "tevctl: no answer in time\n";
  removeGuarded();
  if (lastError.length > 0)
    writeLast(errorFd, lastError.bytes, lastError.length);
  else
    writeLast(errorFd, plain, sizeof plain - 1);
  if (lastOutput.length > 0) writeLast(outputFd, lastOutput.bytes, lastOutput.length);
  _exit(exitNoAnswer);
}

// Neither handler is interrupted by the other.
void handle(int number, void (*handler)(int)) {
  struct sigaction action {};
  if (sigaction(number, nullptr, &action) != 0 || (action.sa_handler == SIG_IGN && number != SIGALRM)) return;
  action.sa_handler = handler;
  (void)sigfillset(&action.sa_mask); // neither this nor the next can fail
  (void)sigaction(number, &action, nullptr);
}

} // namespace

void watch() {
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGXFSZ})
    handle(number, endBySignal);
  handle(SIGALRM, endInTime);
  sigset_t alarm; // may be blocked in the process that started this one
  (void)sigemptyset(&alarm);
  (void)sigaddset(&alarm, SIGALRM);
  (void)sigprocmask(SIG_UNBLOCK, &alarm, nullptr); // fails only for an unknown first argument
}

SignalsBlocked::SignalsBlocked() {
  sigset_t all;
  (void)sigfillset(&all);
  (void)sigprocmask(SIG_SETMASK, &all, &_before);
}

SignalsBlocked::~SignalsBlocked() { (void)sigprocmask(SIG_SETMASK, &_before, nullptr); }

void guard(int queueId, const char* pipe) {
  (void)std::snprintf(pipePath, sizeof pipePath, "%s", pipe); // fits: it is that of a CommObj
  queue = queueId;
}

void removeGuarded() {
  if (queue < 0) return;
  // Either may have been removed by others.
  (void)unlink(pipePath);
  (void)msgctl(queue, IPC_RMID, nullptr);
  queue = -1;
}

void limit(double seconds) {
  itimerval timer{};
  timer.it_value.tv_sec = static_cast<time_t>(seconds);
  timer.it_value.tv_usec = static_cast<suseconds_t>(std::fmod(seconds, 1.0) * 1e6);
  if (seconds > 0 && timer.it_value.tv_sec == 0 && timer.it_value.tv_usec == 0) timer.it_value.tv_usec = 1;
  (void)setitimer(ITIMER_REAL, &timer, nullptr); // fails only for times that are out of range
}

void setLastWords(const std::string& error, const std::string& output) {
  lastError.set(error);
  lastOutput.set(output);
}

void setStandardDescriptors(int output, int error) {
  outputFd = output;
  errorFd = error;
}

} // namespace ending
