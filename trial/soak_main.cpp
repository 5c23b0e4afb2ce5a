// Runs on the stand-in board: types lines of all kinds into one shell while services fail, nodes come and go, and
// stray messages and replies arrive. Judges every answer, and watches the shell's memory and descriptors.
//
// tev-soak SHELL SEED minutes|requests NUMBER
#include "sim/Appliance.h"
#include "sim/Quoting.h"
#include "sim/SystemError.h"
#include "trial/Lines.h"
#include "trial/Shell.h"
#include "trial/Trace.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/ioctl.h>
#include <sys/msg.h>
#include <thread>

namespace trial {

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr key_t shellKey = 153191;
constexpr char traceLog[] = "/tmp/cli.log";
constexpr long flatness = 64;          // KiB that the resident memory may vary
constexpr size_t drainedAtOnce = 1024; // bytes
constexpr unsigned unexpectedMax = 20;

struct Plan {
  std::string program;
  unsigned seed = 0;
  bool requestsOnly = false;
  unsigned long number = 0; // of minutes, or of requests
};

/// What a process takes up.
struct Use {
  long resident = 0;  // KiB
  long anonymous = 0; // KiB of it
  long descriptors = 0;

  static Use of(pid_t pid);
};

Use Use::of(pid_t pid) {
  const std::string folder = "/proc/" + std::to_string(pid);
  Use use;
  std::ifstream rollup(folder + "/smaps_rollup"); // exact, unlike the counters in status
  for (std::string line; std::getline(rollup, line);) {
    (void)sscanf(line.c_str(), "Rss: %ld", &use.resident); // other lines leave it
    (void)sscanf(line.c_str(), "Anonymous: %ld", &use.anonymous);
  }
  for (const auto& entry : std::filesystem::directory_iterator(folder + "/fd")) {
    (void)entry;
    ++use.descriptors;
  }
  if (use.resident == 0) throw std::runtime_error(folder + " tells no memory");
  return use;
}

class Soak {
public:
  explicit Soak(const Plan& plan);
  bool run();

private:
  void typeNext();
  void take(const Line& line, const std::string& answer, const Trace::News& news, bool drains);
  unsigned sendMessages();
  bool leaveBytes();
  void settle();
  bool isQuiet() const;
  size_t unread() const; // bytes in the pipe
  void awaitUndecoded(unsigned count, Trace::News& news);
  double share() const; // of the plan that is done
  void sample();
  void unexpected(const Line& line, const std::string& answer, const std::string& what);
  bool end();
  bool endByLongLine();
  void report() const;
  bool isFlat() const;

  const Plan _plan;
  Lines _lines;
  Shell _shell;
  int _queue = -1;
  std::string _pipe;
  std::unique_ptr<Trace> _trace;
  const Clock::time_point _start;
  bool _askedSinceProbe = true;
  Clock::time_point _nextSample;
  int _nextLine = 0; // of the table of samples
  Clock::duration _longest{};

  unsigned long _typed = 0, _requests = 0, _drained = 0, _messages = 0, _disturbed = 0, _typedInDoubt = 0;
  std::map<Ending, unsigned long> _endings;
  std::map<std::string, std::map<std::string, unsigned long>> _outcomes; // by kind
  unsigned _unexpected = 0;
  std::deque<std::string> _recent; // lines, and what came of them
  std::vector<Use> _uses;          // after the warm-up
};

Soak::Soak(const Plan& plan)
    : _plan(plan), _lines(plan.seed), _shell(plan.program), _start(Clock::now()), _nextSample(_start) {
  std::string text;
  if (_shell.awaitPrompt(&text) != Shell::State::prompting) throw std::runtime_error("no prompt: " + text);
  _queue = sim::check(msgget(shellKey, 0), "the shell's queue");
  _pipe = "/tmp/tCliAppTask." + std::to_string(_queue);
  std::this_thread::sleep_for(1500ms); // by then the shell's task has told what it tells at its start
  _trace = std::make_unique<Trace>(traceLog);
}

bool Soak::run() {
  printf("%6s %9s %9s %13s %14s %11s\n", "minute", "lines", "requests", "resident KiB", "anonymous KiB", "descriptors");
  while (share() < 1 && _unexpected < unexpectedMax) {
    typeNext();
    if (Clock::now() >= _nextSample) sample();
  }
  const bool ended = end() && endByLongLine();
  report();
  return isFlat() && ended && _unexpected == 0;
}

double Soak::share() const {
  const double planned = static_cast<double>(_plan.number);
  if (_plan.requestsOnly) return static_cast<double>(_requests) / planned;
  return std::chrono::duration<double>(Clock::now() - _start).count() / 60 / planned;
}

void Soak::typeNext() {
  settle();
  if (!_plan.requestsOnly && _lines.disturb()) ++_disturbed;
  const Line line = _plan.requestsOnly ? _lines.nextRequest() : _lines.next();
  const bool bother = !_plan.requestsOnly && _lines.below(30) == 0;
  const bool drains = bother && line.asks && leaveBytes();
  const unsigned messages = bother && !line.asks ? sendMessages() : 0;
  ++_typed;
  _typedInDoubt += _lines.isInDoubt() ? 1 : 0;
  const auto before = Clock::now();
  _shell.type(line.text);
  std::string answer;
  const Shell::State state = _shell.awaitPrompt(&answer);
  _longest = std::max(_longest, Clock::now() - before);
  if (state != Shell::State::prompting) {
    unexpected(line, answer, state == Shell::State::ended ? "the shell has ended" : "no prompt");
    throw std::runtime_error("the shell is lost");
  }
  Trace::News news = _trace->read();
  awaitUndecoded(messages, news);
  take(line, answer, news, drains);
}

void Soak::take(const Line& line, const std::string& answer, const Trace::News& news, bool drains) {
  _requests += news.requests;
  _drained += news.drained;
  ++_endings[news.ending];
  const std::string outcome = line.judge(answer, news.ending);
  if (outcome.empty()) unexpected(line, answer, endingNames[static_cast<size_t>(news.ending)]);
  if (news.requests != (line.asks ? 1 : 0)) unexpected(line, answer, std::to_string(news.requests) + " requests");
  if (drains && news.drained == 0) unexpected(line, answer, "stale bytes stayed");
  for (const std::string& strange : news.strange)
    unexpected(line, answer, "in the trace log: " + strange);
  _recent.push_back(sim::quoted(line.text) + ": " + (outcome.empty() ? "unexpected" : outcome) +
                    (_lines.isInDoubt() ? ", in doubt" : "") + (news.drained > 0 ? ", drained" : "") +
                    (drains ? ", stray" : ""));
  if (_recent.size() > 8) _recent.pop_front();
  ++_outcomes[line.kind][outcome.empty() ? "UNEXPECTED" : outcome];
  // A reply, or a part of one, may still be on its way.
  if (line.asks && news.ending != Ending::answered) _lines.setInDoubt(true);
  _askedSinceProbe = _askedSinceProbe || line.asks;
}

// A service takes a message from its queue when it is done with the one before. So when it has taken one that was put
// there after the last request, nothing more is on its way, and what lies in the pipe goes with the next drain.
void Soak::settle() {
  if (!_lines.isInDoubt()) return;
  if (_askedSinceProbe) {
    const struct {
      long type = 1;
      char text[2] = {}; // a message that no service knows
    } probe;
    for (const sim::ServiceTask& task : sim::serviceTasks)
      sim::check(msgsnd(task.queueId, &probe, sizeof probe.text, 0), task.name);
    _askedSinceProbe = false;
  }
  // A little patience, or most lines would be typed in doubt.
  bool quiet = isQuiet();
  for (int i = 0; i < 10 && !quiet; ++i) {
    std::this_thread::sleep_for(200us);
    quiet = isQuiet();
  }
  _lines.setInDoubt(!quiet);
}

bool Soak::isQuiet() const {
  for (const sim::ServiceTask& task : sim::serviceTasks) {
    msqid_ds queue = {};
    sim::check(msgctl(task.queueId, IPC_STAT, &queue), task.name);
    if (queue.msg_qnum != 0) return false;
  }
  return unread() <= drainedAtOnce;
}

size_t Soak::unread() const {
  const kr::Descriptor pipe(sim::check(open(_pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC), _pipe));
  int count = 0;
  sim::check(ioctl(pipe.get(), FIONREAD, &count), _pipe);
  return static_cast<size_t>(count);
}

// Messages that the shell cannot decode, some of them longer than it takes.
unsigned Soak::sendMessages() {
  struct {
    long type = 1;
    char text[600] = {};
  } message;
  const unsigned count = 1 + _lines.below(8);
  for (unsigned i = 0; i < count; ++i) {
    const std::string text = _lines.word(_lines.below(sizeof message.text));
    memcpy(message.text, text.data(), text.size());
    message.type = 1 + static_cast<long>(_lines.below(INT32_MAX));
    sim::check(msgsnd(_queue, &message, text.size(), 0), "the shell's queue");
  }
  _messages += count;
  return count;
}

void Soak::awaitUndecoded(unsigned count, Trace::News& news) {
  for (const auto deadline = Clock::now() + 10s; news.undecoded < count && Clock::now() < deadline;) {
    std::this_thread::sleep_for(200us);
    Trace::News more = _trace->read();
    news.undecoded += more.undecoded;
    news.strange.insert(news.strange.end(), more.strange.begin(), more.strange.end());
  }
  if (news.undecoded != count) {
    news.strange.push_back(std::to_string(news.undecoded) + " messages of " + std::to_string(count));
  }
}

// Bytes that nobody waits for, in the pipe of the shell's replies. True if they must be gone before a reply is read.
bool Soak::leaveBytes() {
  const bool many = _lines.below(50) == 0;
  const std::string bytes = _lines.word(many ? 5 * drainedAtOnce : 1 + _lines.below(drainedAtOnce));
  const kr::Descriptor pipe(sim::check(open(_pipe.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC), _pipe));
  if (write(pipe.get(), bytes.data(), bytes.size()) < 0) throw sim::systemError(_pipe);
  if (unread() > drainedAtOnce) _lines.setInDoubt(true);
  return !_lines.isInDoubt();
}

void Soak::sample() {
  const double done = share();
  const Use use = Use::of(_shell.pid());
  _nextSample = Clock::now() + 1s;
  constexpr double warmUp = 0.1;
  if (done >= warmUp) _uses.push_back(use);
  if (done * 20 >= _nextLine) {
    _nextLine = static_cast<int>(done * 20) + 1;
    const double minutes = std::chrono::duration<double>(Clock::now() - _start).count() / 60;
    printf("%6.1f %9lu %9lu %13ld %14ld %11ld\n", minutes, _typed, _requests, use.resident, use.anonymous,
           use.descriptors);
    (void)fflush(stdout); // a lost line of the table shows by itself
  }
  // The logs would fill the memory of the machine.
  forgetLog(traceLog);
  for (const auto& entry : std::filesystem::directory_iterator("/var/log"))
    forgetLog(entry.path());
}

void Soak::unexpected(const Line& line, const std::string& answer, const std::string& what) {
  ++_unexpected;
  printf("UNEXPECTED after %lu lines%s: typed %s, got %s, %s; expected %s\n", _typed,
         _lines.isInDoubt() ? " in doubt" : "", sim::quoted(line.text).c_str(), sim::quoted(answer).c_str(),
         what.c_str(), sim::quoted(line.expected).c_str());
  for (const std::string& before : _recent)
    printf("  after %s\n", before.c_str());
  _lines.forget();
}

// The command `exit` leaves nothing behind.
bool Soak::end() {
  _lines.restore();
  std::string answer;
  _shell.type("exit");
  const Shell::State state = _shell.awaitPrompt(&answer);
  std::string rest;
  const bool fine = state == Shell::State::ended && answer == "tev-cli: exiting...\n" && _shell.end(&rest) == 0 &&
                    msgget(shellKey, 0) < 0 && access(_pipe.c_str(), F_OK) != 0;
  ++_outcomes["exit"][fine ? "ended" : "UNEXPECTED"];
  return fine;
}

// A line that is too long ends a shell, which leaves its queue to the next.
bool Soak::endByLongLine() {
  bool fine = true;
  for (const size_t length : {size_t{128}, size_t{5000}}) {
    Shell shell(_plan.program);
    std::string answer;
    fine = fine && shell.awaitPrompt(&answer) == Shell::State::prompting;
    shell.type(_lines.word(length));
    std::string rest;
    const bool ended = shell.awaitPrompt(&answer) == Shell::State::ended && answer.empty() && shell.end(&rest) == 0;
    ++_outcomes["(too long)"][ended ? "ended" : "UNEXPECTED"];
    fine = fine && ended;
  }
  return fine;
}

void Soak::report() const {
  printf("\n%-18s %9s  %s\n", "typed", "lines", "outcomes");
  for (const auto& [kind, outcomes] : _outcomes) {
    unsigned long all = 0;
    std::string text;
    for (const auto& [outcome, count] : outcomes) {
      all += count;
      text += (text.empty() ? "" : ", ") + outcome + " " + std::to_string(count);
    }
    printf("%-18s %9lu  %s\n", kind.c_str(), all, text.c_str());
  }
  printf("\nrequests: %lu\n", _requests);
  for (const auto& [ending, count] : _endings) {
    if (ending != Ending::none) printf("  %s: %lu\n", endingNames[static_cast<size_t>(ending)], count);
  }
  printf("  stale bytes drained before: %lu\n", _drained);
  printf("while a mix-up was possible: %lu lines\n", _typedInDoubt);
  printf("messages that the shell cannot decode: %lu\n", _messages);
  printf("places gone, stuck or back: %lu\n", _disturbed);
  printf("longest wait for a prompt: %.3f s\n", std::chrono::duration<double>(_longest).count());
  printf("unexpected outcomes: %u\n", _unexpected);
}

// Whether the shell took up the same all the time since the warm-up.
bool Soak::isFlat() const {
  bool flat = !_uses.empty();
  printf("\nafter the warm-up, by %zu samples:\n", _uses.size());
  const auto tell = [&](const char* what, long Use::*part, long mayVary) {
    const auto less = [part](const Use& a, const Use& b) { return a.*part < b.*part; };
    const auto [low, high] = std::minmax_element(_uses.begin(), _uses.end(), less);
    if (low == _uses.end()) return;
    const bool fine = *high.*part - *low.*part <= mayVary;
    printf("  %s: %ld to %ld: %s\n", what, *low.*part, *high.*part, fine ? "flat" : "NOT FLAT");
    flat = flat && fine;
  };
  tell("resident KiB", &Use::resident, flatness);
  tell("anonymous KiB", &Use::anonymous, flatness);
  tell("descriptors", &Use::descriptors, 0);
  return flat;
}

int soak(const std::vector<std::string>& words) {
  if (words.size() != 4 || (words[2] != "minutes" && words[2] != "requests")) {
    (void)fprintf(stderr, "usage: tev-soak SHELL SEED minutes|requests NUMBER\n");
    return 2;
  }
  (void)signal(SIGPIPE, SIG_IGN); // cannot fail
  const Plan plan = {words[0], static_cast<unsigned>(std::stoul(words[1])), words[2] == "requests",
                     std::stoul(words[3])};
  return Soak(plan).run() ? 0 : 1;
}

} // namespace

} // namespace trial

int main(int argc, char** argv) {
  try {
    return trial::soak({argv + 1, argv + argc});
  } catch (const std::exception& error) {
    (void)fflush(stdout);
    (void)fprintf(stderr, "tev-soak: %s\n", error.what());
    return 1;
  }
}
