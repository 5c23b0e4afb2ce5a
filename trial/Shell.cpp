#include "trial/Shell.h"

#include "trial/ThreadLines.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace trial {

namespace {

constexpr char prompt[] = "tev-cli> ";
constexpr int longestSilence = 15'000; // milliseconds; an exchange takes three seconds at most

int check(int result, const char* what) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), what);
  return result;
}

/// Where the prompt begins that ends what `text` begins with. A help text may hold one, but not at the start of a line.
size_t findPrompt(const std::string& text) {
  size_t at = text.find(prompt);
  while (at != text.npos && at > 0 && text[at - 1] != '\n')
    at = text.find(prompt, at + 1);
  return at;
}

} // namespace

Shell::Shell(const std::string& program, const std::string& first, const std::string& second) {
  int in[2], out[2];
  check(pipe2(in, O_CLOEXEC), "pipe");
  check(pipe2(out, O_CLOEXEC), "pipe");
  _pid = check(fork(), "fork");
  if (_pid == 0) {
    (void)prctl(PR_SET_PDEATHSIG, SIGKILL); // cannot fail
    // The strings live until the program is replaced.
    if (!first.empty()) (void)putenv(const_cast<char*>(first.c_str()));
    if (!second.empty()) (void)putenv(const_cast<char*>(second.c_str()));
    if (dup2(in[0], 0) == 0 && dup2(out[1], 1) == 1 && dup2(out[1], 2) == 2)
      (void)execl(program.c_str(), program.c_str(), nullptr);
    _exit(127);
  }
  (void)close(in[0]);
  (void)close(out[1]);
  _in = in[1];
  _out = out[0];
}

Shell::~Shell() {
  if (_pid > 0) {
    (void)kill(_pid, SIGKILL);
    (void)waitpid(_pid, nullptr, 0);
  }
  if (_in >= 0) (void)close(_in);
  (void)close(_out);
}

void Shell::type(const std::string& line) {
  const std::string typed = line + '\n';
  const ssize_t written = write(_in, typed.data(), typed.size()); // fails when the shell has ended: seen when reading
  (void)written;
}

Shell::State Shell::readMore() {
  pollfd wait = {_out, POLLIN, 0};
  if (poll(&wait, 1, longestSilence) == 0) return State::silent;
  char piece[4096];
  const ssize_t count = read(_out, piece, sizeof piece);
  if (count <= 0) return State::ended;
  _read.append(piece, static_cast<size_t>(count));
  return State::prompting;
}

Shell::State Shell::awaitPrompt(std::string* text) {
  State state = State::prompting;
  size_t at = findPrompt(_read);
  while (at == _read.npos && (state = readMore()) == State::prompting)
    at = findPrompt(_read);
  *text = withoutThreadLines(_read.substr(0, at));
  _read.erase(0, at == _read.npos ? at : at + sizeof prompt - 1);
  return state;
}

int Shell::end(std::string* text) {
  if (_in >= 0) (void)close(_in);
  _in = -1;
  while (readMore() == State::prompting) {
  }
  *text = withoutThreadLines(_read);
  _read.clear();
  int status = 0;
  check(waitpid(_pid, &status, 0), "waitpid");
  _pid = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace trial
