// The services that the synchronous exchange meets, and the pipe between them: the system calls that it makes on queue
// and pipe end here. The services answer at any moment: on time, late, twice, never, half or in two halves.
#ifndef TEV_TRIAL_WORLD_H
#define TEV_TRIAL_WORLD_H

#include "messaging/CommObj.h"
#include "messaging/GetVideoResolutionReqMsg.h"
#include "messaging/SetVideoModeReqMsg.h"
#include "messaging/StreamControlReqMsg.h"
#include "trial/Choices.h"
#include "trial/SystemCalls.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace trial {

constexpr unsigned exchanges = 3; // in a row
constexpr unsigned services = 2;
constexpr size_t unitSize = 2; // bytes that no fault divides
constexpr size_t drainedMax = 1024;
constexpr unsigned stray = exchanges; // the exchange that bytes are for which belong to none

enum class Behaviour { whole, twice, silent, half, split, refused };
constexpr unsigned behaviours = 6;
/// The parts of the reply that each of them writes: which copy, from which half to which.
const std::vector<std::array<unsigned, 3>> parts[behaviours] = {{{0, 0, 2}}, {{0, 0, 2}, {1, 0, 2}}, {},
                                                                {{0, 0, 1}}, {{0, 0, 1}, {0, 1, 2}}, {}};

/// What the requests are that the exchanges are made of.
struct Request {
  const char* name;
  unsigned service;
  size_t units; // of its reply
  MsgObj* (*make)(unsigned long source);
};

template <class Message>
MsgObj* make(unsigned long source) {
  auto* message = new Message(source, 98307); // the destination is not looked at here
  message->SetSync();
  message->SetRemote();
  return message;
}

constexpr Request requests[] = {{"video-format", 0, 20 / unitSize, make<SetVideoModeReqMsg>},
                                {"video-resolution", 0, 28 / unitSize, make<GetVideoResolutionReqMsg>},
                                {"stream", 1, 20 / unitSize, make<StreamControlReqMsg>}};

/// What a unit in the pipe holds: where it comes from.
struct Unit {
  uint8_t exchange : 2;
  uint8_t copy : 1; // of its reply
  uint8_t index : 5;
};
static_assert(sizeof(Unit) == 1);

/// A unit in the pipe, and the step since which it has been there.
struct PendingUnit {
  Unit unit;
  unsigned since;
};

/// Units that a service is going to write.
struct Write {
  unsigned exchange, copy;
  size_t from, to;
};

struct Exchange {
  const Request* request = nullptr;
  Behaviour behaviour = Behaviour::whole;
  unsigned drainedAt = 0; // when the drain looked whether there is anything
  unsigned endedAt = 0;
  unsigned lines = 0; // of the story by then
  size_t pending = 0; // bytes, when the drain looked
  bool quiet = false; // at that moment nothing was still to be written
  bool timedOut = false;
  bool replied = false;
  unsigned reads = 0;           // calls, of its reply
  std::vector<PendingUnit> got; // in the reply that it returned, or before it gave up
};

/// What may happen.
struct Trial {
  const char* name;
  unsigned faults; // at most in one way, not counting replies that are late
  size_t stray;    // bytes in the pipe at the start
  bool signals;    // may interrupt a wait once; that is a fault
};

/// Whether the exchange of this number got all of one copy of its own reply and nothing else.
inline bool isOwn(const Exchange& exchange, unsigned number) {
  for (size_t i = 0; i < exchange.got.size(); ++i) {
    const Unit& unit = exchange.got[i].unit;
    if (unit.exchange != number || unit.copy != exchange.got[0].unit.copy || unit.index != i) return false;
  }
  return exchange.replied;
}

/// One way through three exchanges, on the thread that makes it.
class World : public SystemCalls {
public:
  World(const Trial& trial, Choices& choices, CommObj& console) : _trial(trial), _choices(choices), _console(console) {
    present = this;
  }
  ~World() { present = _before; }
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  /// Set between an exchange's drain and the end of its reply.
  inline static std::atomic<bool> busy{false};
  /// Calls of other threads meanwhile.
  inline static std::atomic<unsigned> trespasses{0};
  /// Called before each call of an exchange, if set.
  inline static std::function<void()> atEachCall;

  /// Goes the way. Adds to `story`, if there is one, what happens on it.
  void run(std::vector<std::string>* story = nullptr) {
    _story = story;
    for (size_t i = 0; i < _trial.stray / unitSize; ++i)
      _pipe.push_back({{stray, 0, static_cast<uint8_t>(i & 31U)}, 0});
    for (_current = 0; _current < exchanges; ++_current) {
      Exchange& exchange = all[_current];
      exchange.request = &requests[_choices.pick(std::size(requests))];
      note(who() + " " + exchange.request->name);
      _stage = Stage::drains;
      const std::unique_ptr<MsgObj> reply(exchange.request->make(_console.GetTaskId())->Send());
      if (std::exchange(_interrupted, 0) != 0) wrong("does not wait on after a signal");
      exchange.replied = reply != nullptr;
      exchange.endedAt = _now;
      if (exchange.replied &&
          (exchange.got.size() != exchange.request->units || reply->size() != exchange.got.size() * unitSize))
        wrong("has a reply that is not complete");
      // What the caller has is what was read, and nothing else.
      for (size_t i = 0; exchange.replied && i < exchange.got.size(); ++i)
        if (memcmp(static_cast<const char*>(reply->image()) + i * unitSize, &exchange.got[i].unit, sizeof(Unit)) != 0)
          wrong("has other bytes than it read");
      note(who() + "   has " + whatItGot(exchange));
      exchange.lines = _lines;
    }
  }

  Exchange all[exchanges];
  std::string fault; ///< of the way that the exchanges make their calls

  int poll(pollfd* wait, nfds_t, int timeout) override {
    const int ready = isMine() ? isReady(timeout) : -1;
    wait->revents = ready > 0 ? POLLIN : 0;
    return ready;
  }

  ssize_t read(int, void* buffer, size_t size) override {
    if (!isMine()) return -1;
    Exchange& exchange = all[_current];
    const bool reading = _stage == Stage::reading;
    if (++_reads > 3 || (_stage != Stage::draining && !reading)) wrong("reads where it should not");
    while (mayWrite()) {
    }
    if (reading) ++exchange.reads;
    const size_t units = std::min(size / unitSize, _pipe.size());
    if (units == 0) {
      if (reading) note(who() + "   reads nothing");
      errno = EAGAIN;
      return -1;
    }
    memset(buffer, 0, units * unitSize);
    for (size_t i = 0; i < units; ++i)
      memcpy(static_cast<char*>(buffer) + i * unitSize, &_pipe[i].unit, sizeof(Unit));
    const auto end = _pipe.begin() + static_cast<ptrdiff_t>(units);
    if (reading) exchange.got.insert(exchange.got.end(), _pipe.begin(), end);
    _pipe.erase(_pipe.begin(), end);
    if (exchange.got.size() == exchange.request->units) busy = false;
    note(who() + (reading ? "   reads " : "   drains ") + std::to_string(units * unitSize) + " bytes");
    return static_cast<ssize_t>(units * unitSize);
  }

  int msgsnd(int, const void*, size_t, int) override {
    if (!isMine()) return -1;
    Exchange& exchange = all[_current];
    if (_stage != Stage::drains && _stage != Stage::draining) wrong("sends where it should not");
    if (_interrupted != 0) wrong("does not drain after a signal");
    _stage = Stage::waits;
    exchange.behaviour = _faults < _trial.faults ? static_cast<Behaviour>(_choices.pick(behaviours)) : Behaviour::whole;
    if (exchange.behaviour != Behaviour::whole) ++_faults;
    const bool refused = exchange.behaviour == Behaviour::refused;
    note(who() + (refused ? "   cannot send" : "   sends"));
    const size_t units = exchange.request->units;
    for (const auto& [copy, from, to] : parts[static_cast<unsigned>(exchange.behaviour)])
      _due[exchange.request->service].push_back({_current, copy, from * units / 2, to * units / 2});
    errno = refused ? EIDRM : 0;
    return refused ? -1 : 0;
  }

private:
  enum class Stage { drains, draining, waits, reading };

  /// Whether the call is part of the exchanges.
  bool isMine() const {
    const bool mine = std::this_thread::get_id() == _thread;
    if (mine && atEachCall) atEachCall();
    if (!mine && busy) ++trespasses;
    if (!mine) errno = EBADF;
    return mine;
  }

  int isReady(int timeout) {
    Exchange& exchange = all[_current];
    const bool drains = _stage == Stage::drains;
    const int whole = drains ? 1 : 3000;
    const bool again = std::exchange(_interrupted, 0) == whole; // for the rest of the time
    if (!drains && _stage != Stage::waits) wrong("waits where it should not");
    if (again ? timeout > whole : timeout != whole) wrong("waits for another time than it should");
    if (!again && _trial.signals && _faults < _trial.faults && _choices.pick(2) == 1) {
      ++_faults;
      _interrupted = whole;
      errno = EINTR;
      return -1;
    }
    while (_pipe.empty() && mayWrite()) {
    }
    _reads = 0;
    _stage = drains ? Stage::draining : Stage::reading; // if it reads at all
    if (drains) {
      exchange.drainedAt = ++_now;
      exchange.pending = _pipe.size() * unitSize;
      exchange.quiet = std::all_of(std::begin(_due), std::end(_due), [](const auto& due) { return due.empty(); });
      busy = true;
    } else if (_pipe.empty()) {
      exchange.timedOut = true;
      busy = false;
    }
    if (_pipe.empty()) note(who() + (drains ? "   finds nothing to drain" : "   times out"));
    return _pipe.empty() ? 0 : 1;
  }

  /// A service may write something now, if it has to. Whether it did.
  bool mayWrite() {
    unsigned able[services], count = 0;
    for (unsigned service = 0; service < services; ++service)
      if (!_due[service].empty()) able[count++] = service;
    const unsigned picked = count == 0 ? 0 : _choices.pick(count + 1);
    if (picked == 0) return false;
    const Write next = _due[able[picked - 1]].front();
    _due[able[picked - 1]].pop_front();
    note(std::string("    ") +
         (next.to < all[next.exchange].request->units ? "the first half of "
          : next.from > 0                             ? "the second half of "
                                                      : "") +
         "reply " + std::to_string(next.exchange + 1) + (next.copy > 0 ? " again" : "") + " arrives");
    for (size_t i = next.from; i < next.to; ++i)
      _pipe.push_back({{static_cast<uint8_t>(next.exchange & 3U), static_cast<uint8_t>(next.copy & 1U),
                        static_cast<uint8_t>(i & 31U)},
                       _now});
    return true;
  }

  std::string whatItGot(const Exchange& exchange) const {
    if (!exchange.replied) return "no reply";
    if (isOwn(exchange, _current)) return "its own reply";
    std::string text;
    for (size_t i = 0, count = 1; i < exchange.got.size(); i += count, count = 1) {
      const Unit first = exchange.got[i].unit;
      while (i + count < exchange.got.size() && exchange.got[i + count].unit.exchange == first.exchange &&
             exchange.got[i + count].unit.index == first.index + count)
        ++count;
      text += (text.empty() ? "bytes " : " and bytes ") + std::to_string(first.index * unitSize) + " to " +
              std::to_string((first.index + count) * unitSize - 1) + " of " +
              (first.exchange == stray ? "stray ones" : "reply " + std::to_string(first.exchange + 1));
    }
    return text;
  }

  void note(const std::string& what) {
    ++_now;
    ++_lines;
    if (_story != nullptr) _story->push_back(what);
  }
  void wrong(const std::string& what) {
    if (fault.empty()) fault = "exchange " + who() + " " + what;
  }
  std::string who() const { return std::to_string(_current + 1); }

  SystemCalls* const _before = present;
  const std::thread::id _thread = std::this_thread::get_id();
  const Trial& _trial;
  Choices& _choices;
  CommObj& _console;
  std::vector<std::string>* _story = nullptr;
  unsigned _now = 0;
  unsigned _lines = 0; // of the story
  unsigned _current = 0;
  unsigned _faults = 0;
  unsigned _reads = 0;
  int _interrupted = 0; // milliseconds that the interrupted wait was for
  Stage _stage = Stage::drains;
  std::deque<PendingUnit> _pipe;
  std::deque<Write> _due[services];
};

} // namespace trial

#endif
