#include "trial/Child.h"

#include "sim/SystemError.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>

namespace trial {

using sim::check;

Child::Child(Strings words, Streams streams, Strings environment) {
  int in[2] = {-1, -1}, out[2] = {-1, -1}, terminal = -1;
  if (streams == Streams::inputAndOutput) check(pipe2(in, O_CLOEXEC), "pipe");
  if (streams == Streams::inputAndOutput || streams == Streams::output) check(pipe2(out, O_CLOEXEC), "pipe");
  _pid = check(streams == Streams::terminal ? forkpty(&terminal, nullptr, nullptr, nullptr) : fork(), "fork");
  if (_pid == 0) {
    if (in[0] >= 0 && dup2(in[0], 0) < 0) _exit(126);
    if (out[1] >= 0 && (dup2(out[1], 1) < 0 || dup2(out[1], 2) < 0)) _exit(126);
    (void)prctl(PR_SET_PDEATHSIG, SIGKILL); // cannot fail
    for (std::string& setting : environment)
      (void)putenv(setting.data()); // lives until the program is replaced
    std::vector<char*> arguments;
    for (std::string& word : words)
      arguments.push_back(word.data());
    arguments.push_back(nullptr);
    (void)execvp(arguments[0], arguments.data());
    _exit(127);
  }
  const kr::Descriptor input(in[0]), output(out[1]); // the child's ends
  _in = kr::Descriptor(terminal >= 0 ? check(fcntl(terminal, F_DUPFD_CLOEXEC, 0), "dup") : in[1]);
  _out = kr::Descriptor(terminal >= 0 ? terminal : out[0]);
}

Child::~Child() {
  if (_pid <= 0) return;
  (void)kill(_pid, SIGKILL); // fails if it has ended
  (void)waitpid(_pid, nullptr, 0);
}

void Child::type(const std::string& text) const {
  const ssize_t written = write(_in.get(), text.data(), text.size()); // fails when it has ended: seen when reading
  (void)written;
}

Child::Came Child::readMore(int longest) {
  pollfd wait = {_out.get(), POLLIN, 0};
  if (check(poll(&wait, 1, longest), "poll") == 0) return Came::nothing;
  char piece[4096];
  const ssize_t count = read(_out.get(), piece, sizeof piece); // fails at the end of a terminal
  if (count <= 0) return Came::end;
  unread.append(piece, static_cast<size_t>(count));
  return Came::text;
}

std::string Child::readTo(const std::string& text) {
  size_t found = unread.npos;
  while (text.empty() || (found = unread.find(text)) == unread.npos) {
    const Came came = readMore();
    if (came == Came::end && text.empty()) return std::exchange(unread, "");
    if (came != Came::text) throw std::runtime_error("no \"" + text + "\" after: " + unread);
  }
  const std::string before = unread.substr(0, found + text.size());
  unread.erase(0, before.size());
  return before;
}

void Child::send(int signal) const { check(kill(_pid, signal), "kill"); }

int Child::wait() {
  int status = 0;
  check(waitpid(_pid, &status, 0), "waitpid");
  _pid = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace trial
