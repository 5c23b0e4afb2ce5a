#include "sim/Job.h"

#include "platform/Descriptor.h"
#include "sim/SystemError.h"

#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>

namespace sim {

namespace {

// Stops this process with the signal. Returns after it is continued.
void stopWith(int number) {
  sigset_t one;
  (void)sigemptyset(&one); // none of these can fail: the sets and numbers are valid
  (void)sigaddset(&one, number);
  (void)raise(number);
  (void)pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
  (void)pthread_sigmask(SIG_BLOCK, &one, nullptr);
}

// Makes this process group the terminal's foreground group again if the present one has ended. A command with job
// control cannot do that itself: this group has no number in its namespace.
void takeTerminalBack() {
  const kr::Descriptor terminal(open("/dev/tty", O_RDWR | O_CLOEXEC));
  if (!terminal) return;
  const pid_t group = tcgetpgrp(terminal.get());
  if (group > 0 && kill(-group, 0) != 0 && errno == ESRCH) (void)tcsetpgrp(terminal.get(), getpgrp());
}

} // namespace

int waitForBoard(pid_t board, int channel) {
  sigset_t all;
  (void)sigfillset(&all);
  const kr::Descriptor signals(check(signalfd(-1, &all, SFD_CLOEXEC | SFD_NONBLOCK), "signalfd"));
  pollfd waits[] = {{signals.get(), POLLIN, 0}, {channel, POLLIN, 0}};
  for (;;) {
    int status = 0;
    if (check(waitpid(board, &status, WNOHANG), "waitpid") == board) {
      takeTerminalBack();
      return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    if (poll(waits, 2, -1) < 0 && errno != EINTR) throw systemError("poll");
    signalfd_siginfo info = {};
    while (read(signals.get(), &info, sizeof info) == sizeof info) {
      const auto number = static_cast<int>(info.ssi_signo);
      if (number == SIGCHLD || info.ssi_code == SI_KERNEL) continue;
      (void)send(channel, &number, sizeof number, MSG_NOSIGNAL); // fails only if the board has ended
    }
    int number = 0;
    if (waits[1].revents == 0) continue;
    if (recv(channel, &number, sizeof number, MSG_DONTWAIT) == sizeof number) {
      stopWith(number);
    } else {
      waits[1].fd = -1; // the board is ending
    }
  }
}

} // namespace sim
