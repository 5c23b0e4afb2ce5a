// The services that the synchronous exchange meets, and the pipe between them: the system calls that it makes on queue
// and pipe end here. The services answer at any moment: on time, late, twice, never, half or in two halves.
#ifndef TEV_TRIAL_WORLD_H
#define TEV_TRIAL_WORLD_H

#include "messaging/CommObj.h"
#include "messaging/GetVideoResolutionReqMsg.h"
#include "messaging/Protocol.h"
#include "messaging/SetVideoModeReqMsg.h"
#include "messaging/StreamControlReqMsg.h"
#include "trial/Choices.h"
#include "trial/SystemCalls.h"

#include <algorithm>
#include <array>
#include <atomic>
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
constexpr size_t drainedMax = 1024;   // bytes
constexpr size_t strayPiece = 32;     // bytes
constexpr unsigned stray = exchanges; // the exchange that bytes are for which belong to none

/// What the requests are that the exchanges are made of.
struct Request {
  const char* name;
  unsigned service;
  size_t replySize; // bytes
  MsgObj* (*make)(unsigned long source);
};

template <class Message>
MsgObj* make(unsigned long source) {
  auto* message = new Message(source, protocol::videoQueueId); // the destination is not looked at here
  message->SetSync();
  message->SetRemote();
  return message;
}

constexpr Request requests[] = {{"video-format", 0, 20, make<SetVideoModeReqMsg>},
                                {"video-resolution", 0, 28, make<GetVideoResolutionReqMsg>},
                                {"stream", 1, 20, make<StreamControlReqMsg>}};

/// Bytes of a reply, in order: what a service is going to write, what is in the pipe, or what was read.
struct Piece {
  unsigned exchange;  // that the reply is for
  unsigned copy;      // of the reply
  size_t from, to;    // in the reply
  unsigned since = 0; // the step at which they came into the pipe

  /// The byte at a place says where it comes from.
  char at(size_t place) const { return static_cast<char>(exchange << 6 | copy << 5 | place); }
};

enum class Behaviour { whole, twice, silent, half, split, refused };
constexpr unsigned behaviours = 6;
/// What each of them writes: which copy of the reply, from which half to which.
const std::vector<std::array<unsigned, 3>> writes[behaviours] = {{{0, 0, 2}}, {{0, 0, 2}, {1, 0, 2}}, {},
                                                                 {{0, 0, 1}}, {{0, 0, 1}, {0, 1, 2}}, {}};

struct Exchange {
  const Request* request = nullptr;
  Behaviour behaviour = Behaviour::whole;
  unsigned drainedAt = 0; // the step at which the drain looked for bytes
  unsigned endedAt = 0;
  bool drained = false; // all that was in the pipe then
  bool quiet = false;   // no service had anything left to write at that step
  bool timedOut = false;
  bool replied = false;
  std::vector<Piece> got; // in the reply that it returned, or before it gave up
  std::string bytes;      // of these pieces
  std::string story;      // what happened until its end, in lines
};

/// What may happen.
struct Trial {
  const char* name;
  unsigned faults;    // at most in one way, not counting replies that are late
  size_t strayPieces; // in the pipe at the start
  bool signals;       // may interrupt a wait once; that is a fault
};

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

  Exchange all[exchanges];
  std::string fault; ///< of the way that the exchanges make their calls

  /// Whether an exchange returned its own reply.
  bool isOwn(unsigned number) const {
    const std::vector<Piece>& got = all[number].got;
    return all[number].replied && got.size() == 1 && got[0].exchange == number && got[0].from == 0;
  }

  /// Goes the way.
  void run() {
    for (size_t i = 0; i < _trial.strayPieces; ++i)
      _pipe.push_back({stray, 0, 0, strayPiece});
    for (_current = 0; _current < exchanges; ++_current) {
      Exchange& exchange = all[_current];
      exchange.request = &requests[_choices.pick(std::size(requests))];
      note(who() + " " + exchange.request->name);
      _stage = Stage::drains;
      const std::unique_ptr<MsgObj> reply(exchange.request->make(_console.GetTaskId())->Send());
      if (std::exchange(_interrupted, 0) != 0) wrong("does not wait on after a signal");
      exchange.replied = reply != nullptr;
      exchange.endedAt = _now;
      if (exchange.replied && (exchange.bytes.size() != exchange.request->replySize ||
                               std::string(static_cast<const char*>(reply->image()), reply->size()) != exchange.bytes))
        wrong("has a reply that is not complete, or other bytes than it read");
      note(who() + "   has " + whatItGot(exchange));
      exchange.story = _story;
    }
  }

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
    std::string bytes;
    while (!_pipe.empty() && bytes.size() < size) {
      Piece taken = _pipe.front();
      taken.to = std::min(taken.to, taken.from + size - bytes.size());
      for (size_t place = taken.from; place < taken.to; ++place)
        bytes += taken.at(place);
      if (reading) add(taken, exchange.got);
      _pipe.front().from = taken.to;
      if (taken.to == _pipe.front().to) _pipe.pop_front();
    }
    if (bytes.empty()) {
      if (reading) note(who() + "   reads nothing");
      errno = EAGAIN;
      return -1;
    }
    std::copy(bytes.begin(), bytes.end(), static_cast<char*>(buffer));
    if (reading) exchange.bytes += bytes;
    if (exchange.bytes.size() == exchange.request->replySize) busy = false;
    note(who() + (reading ? "   reads " : "   drains ") + std::to_string(bytes.size()) + " bytes");
    return static_cast<ssize_t>(bytes.size());
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
    const size_t half = exchange.request->replySize / 2;
    for (const auto& [copy, from, to] : writes[static_cast<unsigned>(exchange.behaviour)])
      _due[exchange.request->service].push_back({_current, copy, from * half, to * half});
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
      size_t pending = 0;
      for (const Piece& piece : _pipe)
        pending += piece.to - piece.from;
      exchange.drained = pending <= drainedMax;
      exchange.quiet = std::all_of(std::begin(_due), std::end(_due), [](const auto& due) { return due.empty(); });
      busy = true;
    } else if (_pipe.empty()) {
      exchange.timedOut = true;
      busy = false;
    }
    if (_pipe.empty()) note(who() + (drains ? "   finds nothing to drain" : "   times out"));
    return _pipe.empty() ? 0 : 1;
  }

  /// Lets a service write what it has left to write, or not. Returns whether one did.
  bool mayWrite() {
    std::vector<std::deque<Piece>*> able;
    for (auto& due : _due)
      if (!due.empty()) able.push_back(&due);
    const unsigned picked = able.empty() ? 0 : _choices.pick(static_cast<unsigned>(able.size()) + 1);
    if (picked == 0) return false;
    Piece next = able[picked - 1]->front();
    able[picked - 1]->pop_front();
    note(std::string("    ") +
         (next.to < all[next.exchange].request->replySize ? "the first half of "
          : next.from > 0                                 ? "the second half of "
                                                          : "") +
         "reply " + std::to_string(next.exchange + 1) + (next.copy > 0 ? " again" : "") + " arrives");
    next.since = _now;
    _pipe.push_back(next);
    return true;
  }

  /// Adds a piece that was read, to the one before if it continues that.
  static void add(const Piece& piece, std::vector<Piece>& to) {
    const bool continues = !to.empty() && to.back().exchange == piece.exchange && to.back().copy == piece.copy &&
                           to.back().to == piece.from;
    if (!continues) to.push_back(piece);
    to.back().to = piece.to;
  }

  std::string whatItGot(const Exchange& exchange) const {
    if (!exchange.replied) return "no reply";
    if (isOwn(_current)) return "its own reply";
    std::string text;
    for (const Piece& piece : exchange.got)
      text += (text.empty() ? "bytes " : " and bytes ") + std::to_string(piece.from) + " to " +
              std::to_string(piece.to - 1) + " of " +
              (piece.exchange == stray ? "stray ones" : "reply " + std::to_string(piece.exchange + 1));
    return text;
  }

  void note(const std::string& what) {
    ++_now;
    _story += what + '\n';
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
  std::string _story;
  unsigned _now = 0;
  unsigned _current = 0;
  unsigned _faults = 0;
  unsigned _reads = 0;
  int _interrupted = 0; // milliseconds that the interrupted wait was for
  Stage _stage = Stage::drains;
  std::deque<Piece> _pipe;
  std::deque<Piece> _due[services]; // what they are going to write
};

} // namespace trial

#endif
