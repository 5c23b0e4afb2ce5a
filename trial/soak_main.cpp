// Runs on the stand-in board: types lines of all kinds into one shell while services fail, nodes come and go, and
// stray messages and replies arrive. Judges every answer, and watches the shell's memory and descriptors.
//
// tev-soak SHELL SEED minutes|requests NUMBER
#include "sim/Appliance.h"
#include "sim/Failure.h"
#include "sim/Quoting.h"
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

  const Plan plan_;
  Lines lines_;
  Shell shell_;
  int queue_ = -1;
  std::string pipe_;
  std::unique_ptr<Trace> trace_;
  const Clock::time_point start_;
  // Whether a reply, or a part of one, may still be on its way to a request that has ended.
  bool inDoubt_ = false;
  bool askedSinceProbe_ = true;
  Clock::time_point nextSample_;
  int nextLine_ = 0; // of the table of samples
  Clock::duration longest_{};

  unsigned long typed_ = 0, requests_ = 0, drained_ = 0, messages_ = 0, disturbed_ = 0, typedInDoubt_ = 0;
  std::map<Ending, unsigned long> endings_;
  std::map<std::string, std::map<std::string, unsigned long>> outcomes_; // by kind
  unsigned unexpected_ = 0;
  std::deque<std::string> recent_; // lines, and what came of them
  std::vector<Use> uses_;          // after the warm-up
};

Soak::Soak(const Plan& plan)
    : plan_(plan), lines_(plan.seed), shell_(plan.program), start_(Clock::now()), nextSample_(start_) {
  std::string text;
  if (shell_.awaitPrompt(&text) != Shell::State::prompting) throw std::runtime_error("no prompt: " + text);
  queue_ = sim::check(msgget(shellKey, 0), "the shell's queue");
  pipe_ = "/tmp/tCliAppTask." + std::to_string(queue_);
  std::this_thread::sleep_for(1500ms); // by then the shell's task has told what it tells at its start
  trace_ = std::make_unique<Trace>(traceLog);
}

bool Soak::run() {
  printf("%6s %9s %9s %13s %14s %11s\n", "minute", "lines", "requests", "resident KiB", "anonymous KiB", "descriptors");
  while (share() < 1 && unexpected_ < unexpectedMax) {
    typeNext();
    if (Clock::now() >= nextSample_) sample();
  }
  const bool ended = end() && endByLongLine();
  report();
  return isFlat() && ended && unexpected_ == 0;
}

double Soak::share() const {
  const double planned = static_cast<double>(plan_.number);
  if (plan_.requestsOnly) return static_cast<double>(requests_) / planned;
  return std::chrono::duration<double>(Clock::now() - start_).count() / 60 / planned;
}

void Soak::typeNext() {
  settle();
  lines_.setInDoubt(inDoubt_);
  if (!plan_.requestsOnly && lines_.disturb()) ++disturbed_;
  const Line line = plan_.requestsOnly ? lines_.nextRequest() : lines_.next();
  const bool bother = !plan_.requestsOnly && lines_.below(30) == 0;
  const bool drains = bother && line.asks && leaveBytes();
  const unsigned messages = bother && !line.asks ? sendMessages() : 0;
  ++typed_;
  typedInDoubt_ += inDoubt_ ? 1 : 0;
  const auto before = Clock::now();
  shell_.type(line.text);
  std::string answer;
  const Shell::State state = shell_.awaitPrompt(&answer);
  longest_ = std::max(longest_, Clock::now() - before);
  if (state != Shell::State::prompting) {
    unexpected(line, answer, state == Shell::State::ended ? "the shell has ended" : "no prompt");
    throw std::runtime_error("the shell is lost");
  }
  Trace::News news = trace_->read();
  awaitUndecoded(messages, news);
  take(line, answer, news, drains);
}

void Soak::take(const Line& line, const std::string& answer, const Trace::News& news, bool drains) {
  requests_ += news.requests;
  drained_ += news.drained;
  ++endings_[news.ending];
  const std::string outcome = line.judge(answer, news.ending);
  if (outcome.empty()) unexpected(line, answer, endingNames[static_cast<size_t>(news.ending)]);
  if (news.requests != (line.asks ? 1 : 0)) unexpected(line, answer, std::to_string(news.requests) + " requests");
  if (drains && news.drained == 0) unexpected(line, answer, "stale bytes stayed");
  for (const std::string& strange : news.strange)
    unexpected(line, answer, "in the trace log: " + strange);
  recent_.push_back(sim::quoted(line.text) + ": " + (outcome.empty() ? "unexpected" : outcome) +
                    (inDoubt_ ? ", in doubt" : "") + (news.drained > 0 ? ", drained" : "") + (drains ? ", stray" : ""));
  if (recent_.size() > 8) recent_.pop_front();
  ++outcomes_[line.kind][outcome.empty() ? "UNEXPECTED" : outcome];
  inDoubt_ = inDoubt_ || (line.asks && news.ending != Ending::answered);
  askedSinceProbe_ = askedSinceProbe_ || line.asks;
}

// A service takes a message from its queue when it is done with the one before. So when it has taken one that was put
// there after the last request, nothing more is on its way, and what lies in the pipe goes with the next drain.
void Soak::settle() {
  if (!inDoubt_) return;
  if (askedSinceProbe_) {
    const struct {
      long type = 1;
      char text[2] = {}; // a message that no service knows
    } probe;
    for (const sim::ServiceTask& task : sim::SERVICE_TASKS)
      sim::check(msgsnd(task.queueId, &probe, sizeof probe.text, 0), task.name);
    askedSinceProbe_ = false;
  }
  // A little patience, or most lines would be typed in doubt.
  for (int i = 0; i < 10 && inDoubt_; ++i) {
    inDoubt_ = !isQuiet();
    if (inDoubt_) std::this_thread::sleep_for(200us);
  }
}

bool Soak::isQuiet() const {
  for (const sim::ServiceTask& task : sim::SERVICE_TASKS) {
    msqid_ds queue = {};
    sim::check(msgctl(task.queueId, IPC_STAT, &queue), task.name);
    if (queue.msg_qnum != 0) return false;
  }
  return unread() <= drainedAtOnce;
}

size_t Soak::unread() const {
  const sim::Descriptor pipe(sim::check(open(pipe_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC), pipe_));
  int count = 0;
  sim::check(ioctl(pipe.get(), FIONREAD, &count), pipe_);
  return static_cast<size_t>(count);
}

// Messages that the shell cannot decode, some of them longer than it takes.
unsigned Soak::sendMessages() {
  struct {
    long type = 1;
    char text[600] = {};
  } message;
  const unsigned count = 1 + lines_.below(8);
  for (unsigned i = 0; i < count; ++i) {
    const std::string text = lines_.word(lines_.below(sizeof message.text));
    memcpy(message.text, text.data(), text.size());
    message.type = 1 + static_cast<long>(lines_.below(INT32_MAX));
    sim::check(msgsnd(queue_, &message, text.size(), 0), "the shell's queue");
  }
  messages_ += count;
  return count;
}

void Soak::awaitUndecoded(unsigned count, Trace::News& news) {
  for (const auto deadline = Clock::now() + 10s; news.undecoded < count && Clock::now() < deadline;) {
    std::this_thread::sleep_for(200us);
    Trace::News more = trace_->read();
    news.undecoded += more.undecoded;
    news.strange.insert(news.strange.end(), more.strange.begin(), more.strange.end());
  }
  if (news.undecoded != count) {
    news.strange.push_back(std::to_string(news.undecoded) + " messages of " + std::to_string(count));
  }
}

// Bytes that nobody waits for, in the pipe of the shell's replies. True if they must be gone before a reply is read.
bool Soak::leaveBytes() {
  const bool many = lines_.below(50) == 0;
  const std::string bytes = lines_.word(many ? 5 * drainedAtOnce : 1 + lines_.below(drainedAtOnce));
  const sim::Descriptor pipe(sim::check(open(pipe_.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC), pipe_));
  if (write(pipe.get(), bytes.data(), bytes.size()) < 0) throw sim::failure(pipe_);
  inDoubt_ = inDoubt_ || unread() > drainedAtOnce;
  lines_.setInDoubt(inDoubt_);
  return !inDoubt_;
}

void Soak::sample() {
  const double done = share();
  const Use use = Use::of(shell_.pid());
  nextSample_ = Clock::now() + 1s;
  constexpr double warmUp = 0.1;
  if (done >= warmUp) uses_.push_back(use);
  if (done * 20 >= nextLine_) {
    nextLine_ = static_cast<int>(done * 20) + 1;
    const double minutes = std::chrono::duration<double>(Clock::now() - start_).count() / 60;
    printf("%6.1f %9lu %9lu %13ld %14ld %11ld\n", minutes, typed_, requests_, use.resident, use.anonymous,
           use.descriptors);
    (void)fflush(stdout); // a lost line of the table shows by itself
  }
  // The logs would fill the memory of the machine.
  forgetLog(traceLog);
  for (const auto& entry : std::filesystem::directory_iterator("/var/log"))
    forgetLog(entry.path());
}

void Soak::unexpected(const Line& line, const std::string& answer, const std::string& what) {
  ++unexpected_;
  printf("UNEXPECTED after %lu lines%s: typed %s, got %s, %s; expected %s\n", typed_, inDoubt_ ? " in doubt" : "",
         sim::quoted(line.text).c_str(), sim::quoted(answer).c_str(), what.c_str(), sim::quoted(line.expected).c_str());
  for (const std::string& before : recent_)
    printf("  after %s\n", before.c_str());
  lines_.forget();
}

// The command `exit` leaves nothing behind.
bool Soak::end() {
  lines_.restore();
  std::string answer;
  shell_.type("exit");
  const Shell::State state = shell_.awaitPrompt(&answer);
  std::string rest;
  const bool fine = state == Shell::State::ended && answer == "tev-cli: exiting...\n" && shell_.end(&rest) == 0 &&
                    msgget(shellKey, 0) < 0 && access(pipe_.c_str(), F_OK) != 0;
  ++outcomes_["exit"][fine ? "ended" : "UNEXPECTED"];
  return fine;
}

// A line that is too long ends a shell, which leaves its queue to the next.
bool Soak::endByLongLine() {
  bool fine = true;
  for (const size_t length : {size_t{128}, size_t{5000}}) {
    Shell shell(plan_.program);
    std::string answer;
    fine = fine && shell.awaitPrompt(&answer) == Shell::State::prompting;
    shell.type(lines_.word(length));
    std::string rest;
    const bool ended = shell.awaitPrompt(&answer) == Shell::State::ended && answer.empty() && shell.end(&rest) == 0;
    ++outcomes_["(too long)"][ended ? "ended" : "UNEXPECTED"];
    fine = fine && ended;
  }
  return fine;
}

void Soak::report() const {
  printf("\n%-18s %9s  %s\n", "typed", "lines", "outcomes");
  for (const auto& [kind, outcomes] : outcomes_) {
    unsigned long all = 0;
    std::string text;
    for (const auto& [outcome, count] : outcomes) {
      all += count;
      text += (text.empty() ? "" : ", ") + outcome + " " + std::to_string(count);
    }
    printf("%-18s %9lu  %s\n", kind.c_str(), all, text.c_str());
  }
  printf("\nrequests: %lu\n", requests_);
  for (const auto& [ending, count] : endings_) {
    if (ending != Ending::none) printf("  %s: %lu\n", endingNames[static_cast<size_t>(ending)], count);
  }
  printf("  stale bytes drained before: %lu\n", drained_);
  printf("while a mix-up was possible: %lu lines\n", typedInDoubt_);
  printf("messages that the shell cannot decode: %lu\n", messages_);
  printf("places gone, stuck or back: %lu\n", disturbed_);
  printf("longest wait for a prompt: %.3f s\n", std::chrono::duration<double>(longest_).count());
  printf("unexpected outcomes: %u\n", unexpected_);
}

// Whether the shell took up the same all the time since the warm-up.
bool Soak::isFlat() const {
  bool flat = !uses_.empty();
  printf("\nafter the warm-up, by %zu samples:\n", uses_.size());
  const auto tell = [&](const char* what, long Use::*part, long mayVary) {
    const auto less = [part](const Use& a, const Use& b) { return a.*part < b.*part; };
    const auto [low, high] = std::minmax_element(uses_.begin(), uses_.end(), less);
    if (low == uses_.end()) return;
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
