// Runs on the stand-in board: types lines of all kinds into one shell while services fail, and stray messages and bytes
// arrive. Types the same lines into the shell of a second board, whose services do not fail, and compares. Watches the
// shell's memory and descriptors.
//
// tev-soak SHELL SEED minutes|requests NUMBER
#include "messaging/Protocol.h"
#include "messaging/internal/FloodGate.h"
#include "sim/Launch.h"
#include "sim/Quoting.h"
#include "sim/SystemError.h"
#include "trial/Console.h"
#include "trial/Lines.h"
#include "trial/Queues.h"
#include "trial/Verdict.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <regex>

namespace trial {

namespace {

using Clock = std::chrono::steady_clock;

constexpr double warmUp = 0.1;     // of what is planned
constexpr long memoryMayVary = 48; // KiB
constexpr int serviceQueues[] = {protocol::videoQueueId, protocol::streamQueueId, protocol::adminQueueId};
constexpr char answered[] = "answered", garbage[] = "answered with garbage", cut[] = "answered with too few bytes",
               mixedUp[] = "answered with another reply", timedOut[] = "timed out";

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

  void run() {
    while (share() < 1) {
      typeNext();
      if (Clock::now() >= _nextSample || (_ranges.empty() && share() >= warmUp)) sample();
    }
    sample();
    _shell.type("exit");
    const Answer answer = _shell.await();
    require(answer.state == Shell::State::ended && _shell.end() == 0, "the shell does not exit");
    printf("%lu lines, %ld messages that the shell cannot decode, %.0f requests:\n", _typed, _messages, _requests);
    for (const auto& [end, count] : _ends)
      printf("  %s: %lu\n", end.c_str(), count);
    for (const auto& [part, range] : _ranges)
      printf("%s: %ld to %ld\n", part.c_str(), range.first, range.second);
  }

private:
  /// What is done of what is planned.
  double share() const {
    const std::chrono::duration<double> seconds = Clock::now() - _start;
    return (_requestsOnly ? _requests : seconds.count() / 60) / _planned;
  }

  void typeNext() {
    settle();
    Line line = _lines.next(_requestsOnly);
    const bool resets = _mayDiffer && !_inDoubt;
    if (resets) line = {"factory config", true};
    _mayDiffer = !resets && (_mayDiffer || (_inDoubt && line.asks));
    _askedSinceProbe = _askedSinceProbe || line.asks;
    const bool bothers = !_requestsOnly && _lines.below(30) == 0;
    if (bothers && line.asks) leaveBytes();
    // No more messages than the shell logs one by one.
    const bool sends = bothers && !line.asks && _messages < FloodGate::burst;
    if (sends) sendUndecodable();
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
    const std::string wrong = answer.events[Answer::undecoded] != (sends ? 1 : 0) ? "a stray message"
                              : bothers && line.asks && answer.events[Answer::drained] == 0
                                  ? "stray bytes"
                                  : faultOf(answer, other, end);
    require(wrong.empty(), "after " + std::to_string(_typed) + " lines" + (_inDoubt ? ", in doubt" : "") + ": " +
                               sim::quoted(line.text) + ": " + end + " " + sim::quoted(answer.text) +
                               ", on the second board " + sim::quoted(other.text) + ": unexpected: " + wrong);
    _requests += answer.events[Answer::request];
    if (!end.empty()) ++_ends[end];
    _inDoubt = _inDoubt || (!end.empty() && end != answered); // a reply, or a part of one, may still be on its way
  }

  /// What is wrong about an answer; empty if it is as expected.
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

  // A service takes a message from its queue when it is done with the one before. So when it has taken one that was put
  // there after the last request, nothing more is on its way, and what lies in the pipe goes with the next drain.
  void settle() {
    if (!_inDoubt) return;
    for (const int queue : serviceQueues)
      require(!_askedSinceProbe || sendMessage(queue, "a message that no service knows"), "a service's queue is full");
    _askedSinceProbe = false;
    // A little patience, or most lines would be typed in doubt.
    for (int i = 0; i < 10 && _inDoubt; ++i) {
      _inDoubt = !std::all_of(std::begin(serviceQueues), std::end(serviceQueues), isEmpty);
      if (_inDoubt) (void)usleep(200); // an interrupted pause only looks earlier
    }
  }

  // A message that the shell cannot decode, perhaps longer than it takes.
  void sendUndecodable() {
    const auto type = 1 + static_cast<long>(_lines.below(INT32_MAX));
    require(sendMessage(_queue, _lines.word(_lines.below(600)), type), "the shell's queue is full");
    ++_messages;
  }

  // Bytes that belong to no exchange, in the pipe of the shell's replies. One drain takes them, and late replies too.
  void leaveBytes() {
    const std::string path = "/tmp/tCliAppTask." + std::to_string(_queue), bytes = _lines.word(1 + _lines.below(512));
    const kr::Descriptor pipe(sim::check(open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC), path));
    sim::check(write(pipe.get(), bytes.data(), bytes.size()), path);
  }

  // After the warm-up the shell takes up the same all the time.
  void sample() {
    for (const auto& [part, value] : _shell.use()) {
      if (share() < warmUp) break;
      auto& [low, high] = _ranges.try_emplace(part, value, value).first->second;
      low = std::min(low, value);
      high = std::max(high, value);
      require(high - low <= (part == "descriptors" ? 0 : memoryMayVary),
              part + " is not flat: " + std::to_string(low) + " to " + std::to_string(high));
    }
    _nextSample = Clock::now() + std::chrono::seconds(1);
    _shell.cutLogs();
    _second.cutLogs();
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

  unsigned long _typed = 0;
  long _messages = 0;
  double _requests = 0;
  std::map<std::string, unsigned long> _ends;
  std::map<std::string, std::pair<long, long>> _ranges; // lowest and highest of each use after the warm-up
};

} // namespace

} // namespace trial

int main(int argc, char** argv) {
  const std::string unit = argc == 5 ? argv[3] : "";
  return trial::verdictOf("tev-soak SHELL SEED minutes|requests NUMBER", unit == "minutes" || unit == "requests", [&] {
    const auto seed = static_cast<unsigned>(std::stoul(argv[2]));
    trial::Soak(argv[1], seed, unit == "requests", std::stod(argv[4])).run();
    return true;
  });
}
