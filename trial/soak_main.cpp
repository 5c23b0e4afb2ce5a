// Runs on the stand-in board: types lines of all kinds into one shell while services fail, nodes come and go, and
// stray messages and replies arrive. Types the same lines into the shell of a second board, whose nodes come and go in
// the same way and whose services do not fail, and compares. Watches the shell's memory and descriptors.
//
// tev-soak SHELL SEED minutes|requests NUMBER
#include "messaging/FloodGate.h"
#include "messaging/Protocol.h"
#include "sim/Launch.h"
#include "sim/Quoting.h"
#include "sim/SystemError.h"
#include "trial/Console.h"
#include "trial/Lines.h"
#include "trial/Place.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <regex>
#include <set>
#include <sys/ioctl.h>
#include <sys/msg.h>

namespace trial {

namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr long flatness = 48;          // KiB that the resident memory may vary
constexpr size_t drainedAtOnce = 1024; // bytes
constexpr unsigned unexpectedMax = 20;
constexpr double warmUp = 0.1; // of what is planned
constexpr int serviceQueues[] = {protocol::videoQueueId, protocol::streamQueueId, protocol::adminQueueId};
constexpr char answered[] = "answered", garbage[] = "answered with garbage", cut[] = "answered with too few bytes",
               mixedUp[] = "answered with what was not meant for it", timedOut[] = "timed out";

/// Lines without the values that they show.
std::string formOf(const std::string& text) {
  static const std::regex value(": [a-z0-9@* ]*\n", std::regex::icase);
  return std::regex_replace(text, value, ":\n");
}

bool hasWord(const std::string& text, const std::string& word) {
  return word.empty() || std::regex_search(text, std::regex("\\b" + word + "\\b"));
}

/// How the request ended, empty if none was sent.
std::string endOf(const Answer& answer, const Answer& other) {
  if (answer.timedOut) return timedOut;
  if (answer.tooShort) return cut;
  if (answer.type == "   msgType = 42405") return garbage; // what the services of the stand-in appliance send
  return answer.type != other.type ? mixedUp : answer.requests > 0 ? answered : "";
}

class Soak {
public:
  Soak(const std::string& program, unsigned seed, bool requestsOnly, double planned)
      : _program(program), _requestsOnly(requestsOnly), _planned(planned), _lines(seed), _shell(program),
        _second(program, sim::programDirectory() + "/../sim/tev-sim"),
        _queue(sim::check(msgget(protocol::consoleQueueKey, 0), "the shell's queue")),
        _pipe("/tmp/tCliAppTask." + std::to_string(_queue)) {}

  bool run() {
    printf("%6s %9s %9s %8s %9s %11s\n", "minute", "lines", "requests", "Rss", "Anonymous", "descriptors");
    while (share() < 1 && _unexpected < unexpectedMax) {
      typeNext();
      if (Clock::now() >= _nextSample || (_uses.empty() && share() >= warmUp)) sample();
    }
    sample();
    const bool ended = end() && endByLongLine();
    report();
    return isFlat() && ended && _unexpected == 0;
  }

private:
  double minutes() const { return Seconds(Clock::now() - _start).count() / 60; }
  double share() const { return (_requestsOnly ? static_cast<double>(_requests) : minutes()) / _planned; }

  /// Now and then lets a place of the boards go, or come back; to restore, all come back.
  void disturb(bool restore = false) {
    for (Place& place : _places) {
      const bool present = place.state == Place::State::present;
      if (restore ? present : !_lines.once(present ? 1000 : 20)) continue;
      const bool stick = present && place.node != nullptr && _lines.once(2);
      place.become(!present ? Place::State::present
                   : stick  ? Place::State::stuck
                            : Place::State::gone,
                   {_shell.board(), _second.board()});
      ++_disturbed;
    }
  }

  void typeNext() {
    settle();
    if (!_requestsOnly) disturb();
    Line line = _lines.next(_requestsOnly);
    const bool resets = _mayDiffer && !_inDoubt;
    if (resets) line = {"factory", "factory config", "", true};
    _mayDiffer = !resets && (_mayDiffer || (_inDoubt && line.asks));
    _askedSinceProbe = _askedSinceProbe || line.asks;
    const bool bother = !_requestsOnly && _lines.once(30);
    const bool drains = bother && line.asks && leaveBytes();
    // No more than the shell logs one by one.
    const bool logged = _messages + 8 < static_cast<unsigned long>(FloodGate::burst);
    const unsigned messages = bother && !line.asks && logged ? sendMessages() : 0;
    ++_typed;
    _typedInDoubt += _inDoubt ? 1 : 0;
    const auto before = Clock::now();
    _shell.type(line.text);
    _second.type(line.text);
    Answer answer = _shell.await();
    _longest = std::max(_longest, Seconds(Clock::now() - before));
    const Answer other = _second.await();
    for (int waited = 0; answer.undecoded < messages && waited < 50'000; ++waited) {
      (void)usleep(200); // an interrupted pause only looks earlier
      _shell.readTrace(answer);
    }
    take(line, answer, other, faultOf(line, answer, other, messages, drains));
    if (answer.state != Shell::State::prompting || other.state != Shell::State::prompting)
      throw std::runtime_error("a shell has ended or is silent");
  }

  /// What is wrong about an answer; empty for nothing.
  std::string faultOf(const Line& line, const Answer& answer, const Answer& other, unsigned messages, bool drains) {
    const std::string end = endOf(answer, other);
    _forms[line.kind].insert(formOf(other.text));
    const bool similar = (_inDoubt || end == garbage) && _forms[line.kind].count(formOf(answer.text)) > 0;
    const bool reported =
        (answer.timedOut || answer.tooShort) && answer.text == "error: couldn't determine the " + line.kind + "\n";
    if (answer.state != other.state) return answer.state == Shell::State::ended ? "the end" : "no prompt";
    if (answer.text != other.text && !similar && !reported) return "another text";
    if (end == mixedUp && !_inDoubt) return "a mix-up";
    if (answer.requests != other.requests) return std::to_string(answer.requests) + " requests";
    if (other.timedOut || other.tooShort) return "no reply on the second board";
    if (drains && answer.drained == 0) return "stale bytes stayed";
    if (answer.undecoded != messages) return std::to_string(answer.undecoded) + " messages";
    if (!answer.other.empty()) return "in the trace log: " + answer.other[0];
    // What was set, with all places present, is what the query shows.
    const bool certain =
        !_inDoubt && (end.empty() || end == answered) &&
        std::all_of(std::begin(_places), std::end(_places), [](auto& p) { return p.state == Place::State::present; });
    if (certain && line.queries && !hasWord(answer.text, _set[line.kind])) return "not what was set";
    if (!certain || line.kind == "factory" || line.kind == "reboot") _set.clear();
    if (certain && !line.queries) _set[line.kind] = line.sets;
    return "";
  }

  void take(const Line& line, const Answer& answer, const Answer& other, const std::string& fault) {
    const std::string end = endOf(answer, other);
    _requests += answer.requests;
    _drained += answer.drained;
    if (!end.empty()) ++_ends[end];
    count(line.kind, fault.empty(), !end.empty() ? end : answer.text.empty() ? "no text" : "text");
    const std::string typed = sim::quoted(line.text) + (_inDoubt ? " in doubt: " : ": ") + end + " " +
                              sim::quoted(answer.text) + (answer.drained > 0 ? ", drained" : "");
    if (!fault.empty()) {
      printf("UNEXPECTED after %lu lines: %s; %s; on the second board %s; set \"%s\"\n", _typed, fault.c_str(),
             typed.c_str(), sim::quoted(other.text).c_str(), _set[line.kind].c_str());
      for (const std::string& before : _recent)
        printf("  after %s\n", before.c_str());
      _set.clear();
    }
    _recent.push_back(typed);
    if (_recent.size() > 8) _recent.pop_front();
    _inDoubt = _inDoubt || (!end.empty() && end != answered); // a reply, or a part of one, may still be on its way
  }

  void count(const std::string& kind, bool fine, const std::string& outcome) {
    ++_outcomes[kind][fine ? outcome : "UNEXPECTED"];
    _unexpected += fine ? 0 : 1;
  }

  // A service takes a message from its queue when it is done with the one before. So when it has taken one that was put
  // there after the last request, nothing more is on its way, and what lies in the pipe goes with the next drain.
  void settle() {
    if (!_inDoubt) return;
    const struct {
      long type = 1;
      char text[2] = {}; // a message that no service knows
    } probe;
    for (const int queue : serviceQueues)
      if (_askedSinceProbe) sim::check(msgsnd(queue, &probe, sizeof probe.text, 0), "a service's queue");
    _askedSinceProbe = false;
    // A little patience, or most lines would be typed in doubt.
    for (int i = 0; i < 10 && _inDoubt; ++i) {
      _inDoubt = !isQuiet();
      if (_inDoubt) (void)usleep(200); // an interrupted pause only looks earlier
    }
  }

  bool isQuiet() const {
    for (const int service : serviceQueues) {
      msqid_ds queue = {};
      sim::check(msgctl(service, IPC_STAT, &queue), "a service's queue");
      if (queue.msg_qnum != 0) return false;
    }
    return unread() <= drainedAtOnce;
  }

  size_t unread() const {
    const kr::Descriptor pipe(sim::check(open(_pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC), _pipe));
    int count = 0;
    sim::check(ioctl(pipe.get(), FIONREAD, &count), _pipe);
    return static_cast<size_t>(count);
  }

  // Messages that the shell cannot decode, some of them longer than it takes.
  unsigned sendMessages() {
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

  // Bytes that belong to no exchange, in the pipe of the shell's replies. True if they must be gone before a reply is
  // read.
  bool leaveBytes() {
    const bool many = _lines.once(50);
    const std::string bytes = _lines.word(many ? 5 * drainedAtOnce : 1 + _lines.below(drainedAtOnce));
    const kr::Descriptor pipe(sim::check(open(_pipe.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC), _pipe));
    sim::check(write(pipe.get(), bytes.data(), bytes.size()), _pipe);
    _inDoubt = _inDoubt || unread() > drainedAtOnce;
    return !_inDoubt;
  }

  void sample() {
    auto use = _shell.use();
    _nextSample = Clock::now() + std::chrono::seconds(1);
    if (share() >= warmUp) _uses.push_back(use);
    if (share() * 20 >= _nextRow) {
      _nextRow = static_cast<int>(share() * 20) + 1;
      printf("%6.1f %9lu %9lu %8ld %9ld %11ld\n", minutes(), _typed, _requests, use["Rss"], use["Anonymous"],
             use["descriptors"]);
      (void)fflush(stdout); // a lost line of the table shows by itself
    }
    _shell.cutLogs();
    _second.cutLogs();
  }

  // The command `exit` leaves nothing behind.
  bool end() {
    disturb(true);
    _shell.type("exit");
    const Answer answer = _shell.await();
    std::string rest;
    const bool fine = answer.state == Shell::State::ended && answer.text == "tev-cli: exiting...\n" &&
                      _shell.end(&rest) == 0 && msgget(protocol::consoleQueueKey, 0) < 0 &&
                      access(_pipe.c_str(), F_OK) != 0;
    count("exit", fine, "ended");
    return fine;
  }

  // A line that is too long ends a shell, which leaves its queue to the next.
  bool endByLongLine() {
    for (const size_t length : {size_t{128}, size_t{5000}}) {
      Shell shell({_program});
      std::string text;
      bool fine = shell.awaitPrompt(&text) == Shell::State::prompting;
      shell.type(_lines.word(length));
      fine = fine && shell.awaitPrompt(&text) == Shell::State::ended && text.empty() && shell.end(&text) == 0;
      count("(too long)", fine, "ended");
    }
    return _unexpected == 0;
  }

  void report() const {
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
    for (const auto& [end, count] : _ends)
      printf("  %s: %lu\n", end.c_str(), count);
    printf("  stale bytes drained before: %lu\n", _drained);
    printf("while a mix-up was possible: %lu lines\n", _typedInDoubt);
    printf("messages that the shell cannot decode: %lu\n", _messages);
    printf("places gone, stuck or back: %lu\n", _disturbed);
    printf("longest wait for a prompt: %.3f s\n", _longest.count());
    printf("unexpected outcomes: %u\n", _unexpected);
  }

  // Whether the shell took up the same all the time since the warm-up.
  bool isFlat() const {
    bool flat = !_uses.empty();
    printf("\nafter the warm-up, by %zu samples:\n", _uses.size());
    for (const char* part : {"Rss", "Anonymous", "descriptors"}) {
      const auto [low, high] = std::minmax_element(
          _uses.begin(), _uses.end(), [part](const auto& a, const auto& b) { return a.at(part) < b.at(part); });
      if (low == _uses.end()) break;
      const bool fine = high->at(part) - low->at(part) <= (part == std::string("descriptors") ? 0 : flatness);
      printf("  %s: %ld to %ld: %s\n", part, low->at(part), high->at(part), fine ? "flat" : "NOT FLAT");
      flat = flat && fine;
    }
    return flat;
  }

  const std::string _program;
  const bool _requestsOnly;
  const double _planned; // minutes, or requests
  Lines _lines;
  Console _shell;
  Console _second; // on the second board
  const int _queue;
  const std::string _pipe;
  const Clock::time_point _start = Clock::now();
  Clock::time_point _nextSample = _start;
  int _nextRow = 0;
  Seconds _longest{};

  bool _inDoubt = false;   // a reply may still be on its way, and a setting may still have to take effect
  bool _mayDiffer = false; // the boards may have come to different settings
  bool _askedSinceProbe = true;
  std::map<std::string, std::string> _set;             // what the next query must show, by kind
  std::map<std::string, std::set<std::string>> _forms; // of the second board's answers, by kind
  Place _places[7] = {{"/sys/bus/i2c/devices/1-004c", "speed"},
                      {"/sys/class/gpio/gpio27", "value"},
                      {"/sys/class/gpio/gpio26", "value"},
                      {"/sys/bus/i2c/devices/2-0020", "format"},
                      {"/sys/module/ksz8864/drivers", "smi"},
                      {"/sys/bus/i2c/devices/1-0050"},
                      {"/mnt/tev/sys/bin"}};

  unsigned long _typed = 0, _requests = 0, _drained = 0, _messages = 0, _disturbed = 0, _typedInDoubt = 0;
  std::map<std::string, unsigned long> _ends;
  std::map<std::string, std::map<std::string, unsigned long>> _outcomes; // by kind
  unsigned _unexpected = 0;
  std::deque<std::string> _recent;                // lines, and what came of them
  std::vector<std::map<std::string, long>> _uses; // after the warm-up
};

} // namespace

} // namespace trial

int main(int argc, char** argv) {
  try {
    const std::string unit = argc == 5 ? argv[3] : "";
    if (unit == "minutes" || unit == "requests") {
      (void)signal(SIGPIPE, SIG_IGN); // cannot fail
      const auto seed = static_cast<unsigned>(std::stoul(argv[2]));
      return trial::Soak(argv[1], seed, unit == "requests", std::stod(argv[4])).run() ? 0 : 1;
    }
    (void)fprintf(stderr, "usage: tev-soak SHELL SEED minutes|requests NUMBER\n");
  } catch (const std::exception& error) {
    (void)fflush(stdout);
    (void)fprintf(stderr, "tev-soak: %s\n", error.what());
    return 1;
  }
  return 2;
}
