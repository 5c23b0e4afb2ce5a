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

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <regex>
#include <sys/msg.h>

namespace trial {

namespace {

using Clock = std::chrono::steady_clock;

constexpr double warmUp = 0.1; // of what is planned
// After the warm-up these may vary by so much. Memory is in KiB.
constexpr std::pair<const char*, long> limits[] = {{"Rss", 48}, {"Anonymous", 48}, {"descriptors", 0}};
constexpr int serviceQueues[] = {protocol::videoQueueId, protocol::streamQueueId, protocol::adminQueueId};
constexpr char answered[] = "answered", garbage[] = "answered with garbage", cut[] = "answered with too few bytes",
               mixedUp[] = "answered with another reply", timedOut[] = "timed out";

/// A part of the boards that comes and goes: an empty file system covers a folder, or a device that reads as zero bytes
/// and takes none covers a node.
struct Place {
  std::string path;
  bool isNode = false;
  bool covered = false;
};

/// Lines without the values that they show.
std::string formOf(const std::string& text) {
  static const std::regex value(": [a-z0-9@* ]*\n", std::regex::icase);
  return std::regex_replace(text, value, ":\n");
}

/// How the request ended; empty if none was sent.
std::string endOf(const Answer& answer, const Answer& other) {
  if (answer.events[Answer::timedOut] > 0) return timedOut;
  if (answer.events[Answer::tooShort] > 0) return cut;
  if (answer.replyType == "   msgType = 42405") return garbage; // what the services of the stand-in appliance send
  if (answer.replyType != other.replyType) return mixedUp;
  return answer.events[Answer::request] > 0 ? answered : "";
}

class Soak {
public:
  Soak(const std::string& program, unsigned seed, bool requestsOnly, double planned)
      : _requestsOnly(requestsOnly), _planned(planned), _lines(seed), _shell(program),
        _second(program, sim::programDirectory() + "/../sim/tev-sim"),
        _queue(sim::check(msgget(protocol::consoleQueueKey, 0), "the shell's queue")) {}

  bool run() {
    while (share() < 1) {
      typeNext();
      if (Clock::now() >= _nextSample || (_ranges.empty() && share() >= warmUp)) sample();
    }
    sample();
    _shell.type("exit");
    const Answer answer = _shell.await();
    std::string rest;
    const bool ended = answer.state == Shell::State::ended && _shell.end(&rest) == 0;
    if (!ended) printf("UNEXPECTED: the shell does not exit\n");
    report();
    return isFlat() && ended;
  }

private:
  /// What is done of what is planned.
  double share() const {
    const std::chrono::duration<double> seconds = Clock::now() - _start;
    return (_requestsOnly ? _requests : seconds.count() / 60) / _planned;
  }

  /// Now and then covers a place of the boards, or uncovers it.
  void disturb() {
    for (Place& place : _places) {
      if (!_lines.once(place.covered ? 20 : 1000)) continue;
      for (const Console* const board : {&_shell, &_second})
        board->onBoard(place.covered  ? Words{"umount", "--lazy", place.path}
                       : place.isNode ? Words{"mount", "--bind", "/dev/full", place.path}
                                      : Words{"mount", "-t", "tmpfs", "-o", "ro,size=4k", "gone", place.path});
      place.covered = !place.covered;
      ++_disturbed;
    }
  }

  void typeNext() {
    settle();
    if (!_requestsOnly) disturb();
    Line line = _lines.next(_requestsOnly);
    const bool resets = _mayDiffer && !_inDoubt;
    if (resets) line = {"factory config", true};
    _mayDiffer = !resets && (_mayDiffer || (_inDoubt && line.asks));
    _askedSinceProbe = _askedSinceProbe || line.asks;
    const bool bothers = !_requestsOnly && _lines.once(30);
    if (bothers && line.asks) leaveBytes();
    // No more messages than the shell logs one by one.
    const bool sends = bothers && !line.asks && _messages < FloodGate::burst;
    if (sends) sendMessage();
    ++_typed;
    _shell.type(line.text);
    _second.type(line.text);
    Answer answer = _shell.await();
    const Answer other = _second.await();
    for (int waited = 0; sends && answer.events[Answer::undecoded] == 0 && waited < 50'000; ++waited) {
      (void)usleep(200); // an interrupted pause only looks earlier
      _shell.readTrace(answer);
    }
    const std::string end = endOf(answer, other);
    const std::string wrong = faultOf(answer, other, end);
    _recent.push_back(sim::quoted(line.text) + (_inDoubt ? " in doubt: " : ": ") + end + " " +
                      sim::quoted(answer.text));
    if (_recent.size() > 8) _recent.pop_front();
    if (!wrong.empty() || answer.events[Answer::undecoded] != (sends ? 1 : 0) ||
        (bothers && line.asks && answer.events[Answer::drained] == 0))
      fail(wrong.empty() ? "stray bytes or a stray message stay" : wrong, other);
    _requests += answer.events[Answer::request];
    if (!end.empty()) ++_ends[end];
    _inDoubt = _inDoubt || (!end.empty() && end != answered); // a reply, or a part of one, may still be on its way
  }

  /// What is wrong about an answer; empty for nothing.
  std::string faultOf(const Answer& answer, const Answer& other, const std::string& end) const {
    const bool similar = (_inDoubt || end == garbage) && formOf(answer.text) == formOf(other.text);
    const bool reported = (end == timedOut || end == cut) &&
                          answer.text.rfind("error: couldn't determine the video-resolution\n", 0) == 0;
    if (answer.state != Shell::State::prompting) return "no prompt";
    if (other.state != Shell::State::prompting) return "no prompt on the second board";
    if (answer.text != other.text && !similar && !reported) return "another text";
    if (end == mixedUp && !_inDoubt) return "another reply";
    if (answer.events[Answer::request] != other.events[Answer::request]) return "another number of requests";
    if (other.events[Answer::timedOut] + other.events[Answer::tooShort] > 0) return "no reply on the second board";
    return answer.unknownLine.empty() ? "" : "in the trace log: " + answer.unknownLine;
  }

  [[noreturn]] void fail(const std::string& wrong, const Answer& other) const {
    printf("UNEXPECTED: %s; on the second board %s; the last lines:\n", wrong.c_str(), sim::quoted(other.text).c_str());
    for (const std::string& line : _recent)
      printf("  %s\n", line.c_str());
    throw std::runtime_error("an unexpected answer after " + std::to_string(_typed) + " lines");
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
      _inDoubt = !std::all_of(std::begin(serviceQueues), std::end(serviceQueues), [](int service) {
        msqid_ds queue = {};
        sim::check(msgctl(service, IPC_STAT, &queue), "a service's queue");
        return queue.msg_qnum == 0;
      });
      if (_inDoubt) (void)usleep(200); // an interrupted pause only looks earlier
    }
  }

  // A message that the shell cannot decode, perhaps longer than it takes.
  void sendMessage() {
    struct {
      long type = 1;
      char text[600] = {};
    } message;
    const std::string text = _lines.word(_lines.below(sizeof message.text));
    memcpy(message.text, text.data(), text.size());
    message.type = 1 + static_cast<long>(_lines.below(INT32_MAX));
    sim::check(msgsnd(_queue, &message, text.size(), 0), "the shell's queue");
    ++_messages;
  }

  // Bytes that belong to no exchange, in the pipe of the shell's replies. One drain takes them, and late replies too.
  void leaveBytes() {
    const std::string path = "/tmp/tCliAppTask." + std::to_string(_queue), bytes = _lines.word(1 + _lines.below(512));
    const kr::Descriptor pipe(sim::check(open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC), path));
    sim::check(write(pipe.get(), bytes.data(), bytes.size()), path);
  }

  void sample() {
    for (const auto& [part, value] : _shell.use()) {
      if (share() < warmUp) break;
      auto& [low, high] = _ranges.try_emplace(part, value, value).first->second;
      low = std::min(low, value);
      high = std::max(high, value);
    }
    _nextSample = Clock::now() + std::chrono::seconds(1);
    _shell.cutLogs();
    _second.cutLogs();
  }

  void report() const {
    printf("%lu lines, %lu messages that the shell cannot decode, %lu changes of places, %.0f requests:\n", _typed,
           static_cast<unsigned long>(_messages), _disturbed, _requests);
    for (const auto& [end, count] : _ends)
      printf("  %s: %lu\n", end.c_str(), count);
  }

  // Whether the shell took up the same all the time since the warm-up.
  bool isFlat() const {
    bool flat = true;
    for (const auto& [part, limit] : limits) {
      const auto& [low, high] = _ranges.at(part);
      printf("%s: %ld to %ld%s\n", part, low, high, high - low <= limit ? "" : ": NOT FLAT");
      flat = flat && high - low <= limit;
    }
    return flat;
  }

  const bool _requestsOnly;
  const double _planned; // minutes, or requests
  Lines _lines;
  Console _shell;
  Console _second; // on the second board
  const int _queue;
  const Clock::time_point _start = Clock::now();
  Clock::time_point _nextSample = _start;

  bool _inDoubt = false;   // a reply may still be on its way, and a setting may still have to take effect
  bool _mayDiffer = false; // the boards may have come to different settings
  bool _askedSinceProbe = true;
  Place _places[7] = {{"/sys/bus/i2c/devices/1-004c"},
                      {"/sys/class/gpio/gpio27"},
                      {"/sys/class/gpio/gpio26/value", true},
                      {"/sys/bus/i2c/devices/2-0020/format", true},
                      {"/sys/module/ksz8864/drivers/smi", true},
                      {"/sys/bus/i2c/devices/1-0050"},
                      {"/mnt/tev/sys/bin"}};

  unsigned long _typed = 0, _disturbed = 0;
  int64_t _messages = 0;
  double _requests = 0;
  std::map<std::string, unsigned long> _ends;
  std::deque<std::string> _recent;                      // lines, and what came of them
  std::map<std::string, std::pair<long, long>> _ranges; // lowest and highest of each use after the warm-up
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
