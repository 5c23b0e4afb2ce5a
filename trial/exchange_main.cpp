// The synchronous exchange, in every order in which replies can arrive.
//
// The code that sends a request and reads its reply is the product's own. The system calls that it makes on queue and
// pipe end here, in a world of services that answer at any moment: on time, late, twice, never, half or in two halves.
// Every choice that this world has is tried. Mix-ups that the protocol rules out must not come about; those that it
// permits must, and of each the shortest way is printed.
//
// tev-exchange [FILE [FAULTS]]      FILE is the page that must show what is printed, FAULTS how many exchanges may be
//                                   answered in another way than once and whole: three, unless told otherwise
#include "messaging/CommObj.h"
#include "messaging/GetVideoResolutionReqMsg.h"
#include "messaging/SetVideoModeReqMsg.h"
#include "messaging/StreamControlReqMsg.h"
#include "trial/Choices.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <deque>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <sys/select.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace trial {

namespace {

constexpr unsigned exchanges = 3; // in a row
constexpr unsigned services = 2;
constexpr size_t unitSize = 2; // bytes that no fault divides
constexpr size_t drainedMax = 1024;
constexpr unsigned nobody = exchanges; // who stray bytes are for

enum class Behaviour { whole, twice, silent, half, split, refused };
constexpr unsigned behaviours = 6;

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

/// Two bytes in the pipe, which tell where they come from.
struct Unit {
  uint8_t exchange : 2;
  uint8_t copy : 1; // of its reply
  uint8_t index : 5;
};
static_assert(sizeof(Unit) == 1);

/// Bytes that a service is going to write.
struct Write {
  unsigned exchange;
  unsigned copy;
  size_t from;
  size_t to;
};

/// A unit as it lies in the pipe.
struct Lying {
  Unit unit;
  unsigned since; // in steps of the world
};

struct Exchange {
  const Request* request = nullptr;
  Behaviour behaviour = Behaviour::whole;
  unsigned drainedAt = 0; // when the drain looked whether there is anything
  unsigned endedAt = 0;
  unsigned told = 0;  // lines of the story by then
  size_t lay = 0;     // bytes, at that moment
  bool quiet = false; // at that moment nothing was still to be written
  bool interrupted = false;
  bool timedOut = false;
  bool replied = false;
  unsigned reads = 0;     // calls, of its reply
  std::vector<Lying> got; // in the reply that it returned, or before it gave up
};

/// What may happen.
struct Trial {
  const char* name;
  unsigned faults; // at most in one way, not counting replies that are late
  size_t stray;    // bytes in the pipe at the start
  bool signals;    // may interrupt a drain; that is a fault
};

class World {
public:
  World(const Trial& trial, Choices& choices, CommObj& console) : _trial(trial), _choices(choices), _console(console) {}

  /// One way through.
  void run(std::vector<std::string>* story = nullptr);

  const Exchange& exchange(unsigned i) const { return _all[i]; }
  const std::string& fault() const { return _fault; }

  // The system calls.
  int select(const timeval& timeout);
  ssize_t read(void* buffer, size_t size);
  int msgsnd();

private:
  enum class Stage { drains, draining, waits, reading };

  void tell(const std::string& what) {
    ++_now;
    ++_told;
    if (_story != nullptr) _story->push_back(what);
  }
  std::string who() const { return std::to_string(_current + 1); }
  void wrong(const std::string& what) {
    if (_fault.empty()) _fault = "exchange " + who() + " " + what;
  }
  bool somethingDue() const {
    return std::any_of(std::begin(_due), std::end(_due), [](const auto& writes) { return !writes.empty(); });
  }
  bool mayWrite();
  void write(unsigned service);

  const Trial& _trial;
  Choices& _choices;
  CommObj& _console;
  std::vector<std::string>* _story = nullptr;
  unsigned _now = 0;
  unsigned _told = 0; // lines of the story
  unsigned _current = 0;
  unsigned _faults = 0;
  unsigned _reads = 0;
  Stage _stage = Stage::drains;
  std::deque<Lying> _pipe;
  std::deque<Write> _due[services];
  Exchange _all[exchanges];
  std::string _fault;
};

World* world = nullptr;

// For a second requester: what it must not do while the first is between its drain and the end of its reply.
std::thread::id firstThread;
std::atomic<bool> busy{false};
std::atomic<unsigned> trespasses{0};
std::function<void()> atEachCall;

// ---- What the services do

std::string nameOf(const Write& write, size_t units) {
  std::string name = "reply " + std::to_string(write.exchange + 1);
  if (write.copy > 0) name += " again";
  if (write.to < units) return "the first half of " + name;
  return write.from > 0 ? "the second half of " + name : name;
}

void World::write(unsigned service) {
  const Write next = _due[service].front();
  _due[service].pop_front();
  tell("    " + nameOf(next, _all[next.exchange].request->units) + " arrives");
  for (size_t i = next.from; i < next.to; ++i) {
    _pipe.push_back({{static_cast<uint8_t>(next.exchange & 3U), static_cast<uint8_t>(next.copy & 1U),
                      static_cast<uint8_t>(i & 31U)},
                     _now});
  }
}

/// A service may write something now, if it has to. Whether it did.
bool World::mayWrite() {
  unsigned able[services];
  unsigned count = 0;
  for (unsigned service = 0; service < services; ++service) {
    if (!_due[service].empty()) able[count++] = service;
  }
  const unsigned picked = count == 0 ? 0 : _choices.pick(count + 1);
  if (picked > 0) write(able[picked - 1]);
  return picked > 0;
}

// ---- The system calls

int World::select(const timeval& timeout) {
  Exchange& exchange = _all[_current];
  const bool draining = timeout.tv_sec == 0;
  if (draining ? _stage != Stage::drains || timeout.tv_usec != 1000
               : _stage != Stage::waits || timeout.tv_sec != 3 || timeout.tv_usec != 0) {
    wrong("waits where it should not");
  }
  while (_pipe.empty() && mayWrite()) {
  }
  _reads = 0;
  if (draining) {
    ++_now;
    exchange.drainedAt = _now;
    exchange.lay = _pipe.size() * unitSize;
    exchange.quiet = !somethingDue();
    exchange.interrupted = _trial.signals && _faults < _trial.faults && _choices.pick(2) == 1;
    if (exchange.interrupted) {
      ++_faults;
      tell(who() + "   is interrupted before it drains");
      errno = EINTR;
      return -1;
    }
    _stage = Stage::draining; // if it reads at all
    busy = true;
    if (_pipe.empty()) tell(who() + "   finds nothing to drain");
  } else {
    _stage = Stage::reading;
    exchange.timedOut = _pipe.empty();
    if (exchange.timedOut) tell(who() + "   times out");
    if (exchange.timedOut) busy = false;
  }
  return _pipe.empty() ? 0 : 1;
}

ssize_t World::read(void* buffer, size_t size) {
  Exchange& exchange = _all[_current];
  if (++_reads > 3 || (_stage != Stage::draining && _stage != Stage::reading)) wrong("reads where it should not");
  while (mayWrite()) {
  }
  if (_stage == Stage::reading) ++exchange.reads;
  const size_t units = std::min(size / unitSize, _pipe.size());
  if (units == 0) {
    if (_stage == Stage::reading) tell(who() + "   reads nothing");
    errno = EAGAIN;
    return -1;
  }
  auto* to = static_cast<unsigned char*>(buffer);
  for (size_t i = 0; i < units; ++i) {
    memset(to + i * unitSize, 0, unitSize);
    memcpy(to + i * unitSize, &_pipe[i].unit, sizeof(Unit));
    if (_stage == Stage::reading) exchange.got.push_back(_pipe[i]);
  }
  _pipe.erase(_pipe.begin(), _pipe.begin() + static_cast<ptrdiff_t>(units));
  if (exchange.got.size() == exchange.request->units) busy = false;
  tell(who() + (_stage == Stage::draining ? "   drains " : "   reads ") + std::to_string(units * unitSize) + " bytes");
  return static_cast<ssize_t>(units * unitSize);
}

int World::msgsnd() {
  Exchange& exchange = _all[_current];
  if (_stage != Stage::drains && _stage != Stage::draining) wrong("sends where it should not");
  _stage = Stage::waits;
  exchange.behaviour = _faults < _trial.faults ? static_cast<Behaviour>(_choices.pick(behaviours)) : Behaviour::whole;
  if (exchange.behaviour != Behaviour::whole) ++_faults;
  const size_t units = exchange.request->units;
  auto& due = _due[exchange.request->service];
  tell(who() + (exchange.behaviour == Behaviour::refused ? "   cannot send" : "   sends"));
  switch (exchange.behaviour) {
  case Behaviour::whole:
    due.push_back({_current, 0, 0, units});
    break;
  case Behaviour::twice:
    due.push_back({_current, 0, 0, units});
    due.push_back({_current, 1, 0, units});
    break;
  case Behaviour::half:
    due.push_back({_current, 0, 0, units / 2});
    break;
  case Behaviour::split:
    due.push_back({_current, 0, 0, units / 2});
    due.push_back({_current, 0, units / 2, units});
    break;
  case Behaviour::silent:
    break;
  case Behaviour::refused:
    errno = EIDRM;
    return -1;
  }
  return 0;
}

// ---- What comes of it

bool isOf(const Lying& lying, unsigned exchange) { return lying.unit.exchange == exchange; }

/// Whether it got all of one copy of its own reply and nothing else.
bool isOwn(const Exchange& exchange, unsigned number) {
  for (size_t i = 0; i < exchange.got.size(); ++i) {
    const Unit& unit = exchange.got[i].unit;
    if (unit.exchange != number || unit.copy != exchange.got[0].unit.copy || unit.index != i) return false;
  }
  return exchange.replied;
}

std::string whatItGot(const Exchange& exchange, unsigned number) {
  if (!exchange.replied) return "no reply";
  if (isOwn(exchange, number)) return "its own reply";
  std::string text;
  for (size_t i = 0; i < exchange.got.size();) {
    const Unit first = exchange.got[i].unit;
    size_t count = 1;
    while (i + count < exchange.got.size() && exchange.got[i + count].unit.exchange == first.exchange &&
           exchange.got[i + count].unit.index == first.index + count)
      ++count;
    if (!text.empty()) text += " and ";
    text += "bytes " + std::to_string(first.index * unitSize) + " to " +
            std::to_string((first.index + count) * unitSize - 1) + " of " +
            (first.exchange == nobody ? "what was for nobody" : "reply " + std::to_string(first.exchange + 1));
    i += count;
  }
  return text;
}

void World::run(std::vector<std::string>* story) {
  _story = story;
  for (size_t i = 0; i < _trial.stray / unitSize; ++i)
    _pipe.push_back({{nobody, 0, static_cast<uint8_t>(i & 31U)}, 0});
  for (_current = 0; _current < exchanges; ++_current) {
    Exchange& exchange = _all[_current];
    exchange.request = &requests[_choices.pick(std::size(requests))];
    tell(who() + " " + exchange.request->name);
    _stage = Stage::drains;
    const std::unique_ptr<MsgObj> reply(exchange.request->make(_console.GetTaskId())->Send());
    exchange.replied = reply != nullptr;
    exchange.endedAt = _now;
    if (exchange.replied) {
      // What the caller has is what was read, and nothing else.
      const auto* bytes = static_cast<const unsigned char*>(reply->image());
      if (exchange.got.size() != exchange.request->units || reply->size() != exchange.got.size() * unitSize) {
        wrong("has a reply that is not complete");
      }
      for (size_t i = 0; i < exchange.got.size(); ++i) {
        if (memcmp(bytes + i * unitSize, &exchange.got[i].unit, sizeof(Unit)) != 0)
          wrong("has other bytes than it read");
      }
    }
    tell(who() + "   has " + whatItGot(exchange, _current));
    exchange.told = _told;
  }
}

// ---- What must not be

/// What is wrong about a way; empty for nothing.
std::string ruledOut(const World& w, size_t stray) {
  bool allInTime = stray == 0;
  for (unsigned i = 0; i < exchanges; ++i) {
    const Exchange& exchange = w.exchange(i);
    const std::string who = "exchange " + std::to_string(i + 1);
    const bool drained = !exchange.interrupted && exchange.lay <= drainedMax;
    allInTime = allInTime && exchange.behaviour == Behaviour::whole && !exchange.timedOut && !exchange.interrupted;
    for (const Lying& lying : exchange.got) {
      const unsigned from = lying.unit.exchange;
      if (from != nobody && from > i) return who + " got bytes of a later reply";
      if (drained && lying.since < exchange.drainedAt)
        return who + " got bytes that lay in the pipe when it drained it";
      if (from < i && drained && lying.since <= w.exchange(from).endedAt) {
        return who + " got bytes of another reply that were not late";
      }
    }
    if (exchange.replied && exchange.timedOut) return who + " timed out and has a reply";
    const bool answered = exchange.behaviour == Behaviour::whole || exchange.behaviour == Behaviour::twice;
    if (drained && exchange.quiet && answered && !exchange.timedOut && !isOwn(exchange, i)) {
      return who + " has not its own reply, although nothing else was on its way";
    }
    if (drained && exchange.quiet && exchange.replied && !isOwn(exchange, i)) {
      return who + " has a reply that is not its own, although nothing else was on its way";
    }
  }
  for (unsigned i = 0; i < exchanges && allInTime; ++i) {
    if (!isOwn(w.exchange(i), i)) return "a mix-up although every reply came once, whole and in time";
  }
  return w.fault();
}

// ---- What may be

/// Where the reply of an exchange comes from, if all of it comes from one place.
struct Source {
  unsigned exchange;
  unsigned copy;
  bool fromStart;
};

std::optional<Source> sourceOf(const Exchange& exchange) {
  if (!exchange.replied) return std::nullopt;
  const Unit first = exchange.got[0].unit;
  for (size_t i = 0; i < exchange.got.size(); ++i) {
    const Unit& unit = exchange.got[i].unit;
    if (unit.exchange != first.exchange || unit.copy != first.copy || unit.index != first.index + i) {
      return std::nullopt;
    }
  }
  return Source{first.exchange, first.copy, first.index == 0};
}

bool isWholeOf(const World& w, unsigned i, unsigned from) {
  const auto source = sourceOf(w.exchange(i));
  return source && source->exchange == from && source->fromStart &&
         w.exchange(i).got.size() == w.exchange(from).request->units;
}

/// Whether it has an earlier exchange's reply from the start, without its end.
bool hasFront(const World& w, unsigned i) {
  const auto source = sourceOf(w.exchange(i));
  return source && source->exchange < i && source->fromStart &&
         w.exchange(i).got.size() < w.exchange(source->exchange).request->units;
}

bool isPieced(const World& w, unsigned i) {
  const Exchange& exchange = w.exchange(i);
  return exchange.replied && !isOwn(exchange, i) && !hasFront(w, i) && !sourceOf(exchange);
}

bool hasSomeOfItsOwn(const Exchange& exchange, unsigned number) {
  return std::any_of(exchange.got.begin(), exchange.got.end(), [number](const Lying& l) { return isOf(l, number); });
}

/// Whether the bytes of others come first, and some of its own after them.
bool startsLate(const World& w, unsigned i) {
  return !isOf(w.exchange(i).got[0], i) && hasSomeOfItsOwn(w.exchange(i), i);
}

struct MixUp {
  const char* title;
  std::function<bool(const World& w, unsigned i)> happened; // to exchange i
  unsigned long ways = 0;
  unsigned fewestSteps = ~0U;
  std::vector<std::string> story = {};
};

std::vector<MixUp> mixUps() {
  return {
      {"a late reply of the same service",
       [](const World& w, unsigned i) {
         const auto source = sourceOf(w.exchange(i));
         return source && source->exchange < i && isWholeOf(w, i, source->exchange) &&
                w.exchange(source->exchange).request->service == w.exchange(i).request->service;
       }},
      {"a late reply of another service",
       [](const World& w, unsigned i) {
         const auto source = sourceOf(w.exchange(i));
         return source && source->exchange < i && isWholeOf(w, i, source->exchange) &&
                w.exchange(source->exchange).request->service != w.exchange(i).request->service;
       }},
      {"a reply that came twice, after the first was taken",
       [](const World& w, unsigned i) {
         const auto source = sourceOf(w.exchange(i));
         return source && source->exchange < i && source->copy == 1 &&
                isOwn(w.exchange(source->exchange), source->exchange) &&
                w.exchange(source->exchange).got[0].unit.copy == 0;
       }},
      {"the front of a longer late reply", hasFront},
      {"a shorter late reply, or half of one, and then its own",
       [](const World& w, unsigned i) {
         return isPieced(w, i) && startsLate(w, i) && w.exchange(i).got[0].unit.index == 0;
       }},
      {"the rest of a late reply, and then its own",
       [](const World& w, unsigned i) {
         return isPieced(w, i) && startsLate(w, i) && w.exchange(i).got[0].unit.index > 0;
       }},
      {"half of its own, and then late bytes",
       [](const World& w, unsigned i) { return isPieced(w, i) && isOf(w.exchange(i).got[0], i); }},
      {"pieces of late replies only",
       [](const World& w, unsigned i) { return isPieced(w, i) && !hasSomeOfItsOwn(w.exchange(i), i); }},
      {"each the reply of the one before",
       [](const World& w, unsigned i) { return i >= 2 && isWholeOf(w, i, i - 1) && isWholeOf(w, i - 1, i - 2); }},
      {"a reply to a request that was not sent",
       [](const World& w, unsigned i) {
         return w.exchange(i).behaviour == Behaviour::refused && w.exchange(i).replied;
       }},
      {"its own reply, in the third try to read it",
       [](const World& w, unsigned i) { return isOwn(w.exchange(i), i) && w.exchange(i).reads == 3; }},
      {"no reply, because bytes of another came first",
       [](const World& w, unsigned i) {
         const Exchange& exchange = w.exchange(i);
         return !exchange.replied && !exchange.timedOut && exchange.behaviour == Behaviour::whole;
       }},
  };
}

// ---- All ways

/// Goes the way that `choices` has just been, and returns what happened on it.
std::vector<std::string> storyOf(const Trial& trial, Choices& choices, CommObj& console) {
  World* const before = world;
  std::vector<std::string> story;
  choices.again();
  World same(trial, choices, console);
  world = &same;
  same.run(&story);
  world = before;
  return story;
}

/// What is wrong about a way. Counts its mix-ups.
std::string judge(const World& w, const Trial& trial, std::vector<MixUp>& mixUps,
                  const std::function<void(MixUp&, unsigned)>& keep) {
  std::string problem = ruledOut(w, trial.stray);
  for (unsigned i = 0; i < exchanges; ++i) {
    bool known = !w.exchange(i).replied || isOwn(w.exchange(i), i);
    for (MixUp& mixUp : mixUps) {
      if (!mixUp.happened(w, i)) continue;
      known = true;
      ++mixUp.ways;
      if (w.exchange(i).endedAt < mixUp.fewestSteps) keep(mixUp, i);
    }
    if (!known && problem.empty()) problem = "exchange " + std::to_string(i + 1) + " has a mix-up of no known kind";
  }
  return problem;
}

bool explore(const Trial& trial, CommObj& console, std::vector<MixUp>& mixUps) {
  Choices choices;
  unsigned long ways = 0;
  do {
    World w(trial, choices, console);
    world = &w;
    w.run();
    ++ways;
    const std::string problem = judge(w, trial, mixUps, [&](MixUp& mixUp, unsigned i) {
      mixUp.fewestSteps = w.exchange(i).endedAt;
      mixUp.story = storyOf(trial, choices, console);
      mixUp.story.resize(w.exchange(i).told);
    });
    if (problem.empty()) continue;
    printf("%s: %s\n", trial.name, problem.c_str());
    for (const std::string& line : storyOf(trial, choices, console))
      printf("    %s\n", line.c_str());
    return false;
  } while (choices.nextWay());
  printf("%s: %lu ways\n", trial.name, ways);
  return true;
}

/// Starts a second requester at each call of three good exchanges. It must touch neither queue nor pipe until the
/// exchange is over.
bool secondWaits(CommObj& console) {
  constexpr Trial trial = {"two requesters", 0, 0, false};
  Choices choices;
  const auto isGood = [&] {
    World w(trial, choices, console);
    world = &w;
    w.run();
    return isOwn(w.exchange(0), 0) && isOwn(w.exchange(1), 1) && isOwn(w.exchange(2), 2);
  };
  while (!isGood())
    (void)choices.nextWay(); // there are some
  bool reached = true;
  unsigned at = 0;
  for (; reached; ++at) {
    unsigned call = 0;
    std::thread second;
    reached = false;
    atEachCall = [&] {
      if (call++ != at) return;
      reached = true;
      second = std::thread([&console] { delete make<SetVideoModeReqMsg>(console.GetTaskId())->Send(); });
      std::this_thread::sleep_for(std::chrono::milliseconds(20)); // time enough to do wrong
    };
    choices.again();
    (void)isGood();
    if (second.joinable()) second.join();
  }
  atEachCall = nullptr;
  printf("a second requester, started at each of %u calls: %u trespasses\n", at - 1, trespasses.load());
  return at > 9 && trespasses == 0;
}

/// Prints the mix-ups, and whether each has come about and `page`, if there is one, shows it.
bool tell(const std::vector<MixUp>& mixUps, const std::string& page) {
  bool fine = true;
  for (const MixUp& mixUp : mixUps) {
    std::string text = std::string("### ") + mixUp.title + "\n\n```\n";
    for (const std::string& line : mixUp.story)
      text += line + "\n";
    text += "```\n";
    printf("\n%s", text.c_str());
    if (mixUp.ways == 0) printf("NEVER HAPPENED\n");
    const bool shown = page.empty() || page.find(text) != page.npos;
    if (!shown) printf("NOT ON THE PAGE\n");
    fine = fine && mixUp.ways > 0 && shown;
  }
  return fine;
}

bool run(const std::string& page, unsigned faults) {
  firstThread = std::this_thread::get_id();
  CommObj::SetKey(160000 + getpid() % 10000);
  auto* console = new CommObj("tExchange"); // StopAll() deletes it
  if (console->GetPipeFd() < 0) throw std::runtime_error("no endpoint here");
  std::vector<MixUp> late = mixUps();
  bool fine = explore({"late and faulty replies", faults, 0, false}, *console, late);
  std::vector<MixUp> stray = {{"what one drain left of more than 1024 bytes", [](const World& w, unsigned i) {
                                 const auto& got = w.exchange(i).got;
                                 const auto isStray = [](const Lying& l) { return isOf(l, nobody); };
                                 return w.exchange(i).replied && std::any_of(got.begin(), got.end(), isStray);
                               }}};
  std::vector<MixUp> interrupted = {
      {"what lay in the pipe, after a signal kept it from being drained", [](const World& w, unsigned i) {
         const Exchange& exchange = w.exchange(i);
         return exchange.interrupted && exchange.replied && !isOwn(exchange, i) &&
                exchange.got[0].since < exchange.drainedAt;
       }}};
  const auto with = [](std::vector<MixUp> some) {
    std::vector<MixUp> all = mixUps();
    some.insert(some.end(), all.begin(), all.end());
    return some;
  };
  stray = with(stray);
  interrupted = with(interrupted);
  fine = fine && explore({"late replies and too many stray bytes", 0, drainedMax + 32, false}, *console, stray);
  fine = fine && explore({"late and faulty replies, and signals", 1, 0, true}, *console, interrupted);
  fine = fine && secondWaits(*console);
  CommObj::StopAll();
  late.push_back(stray[0]);
  late.push_back(interrupted[0]);
  return tell(late, page) && fine;
}

/// Whether a call is part of the exchange that is watched.
bool isMine() {
  if (std::this_thread::get_id() == firstThread) {
    if (atEachCall) atEachCall();
    return true;
  }
  if (busy) ++trespasses;
  errno = EBADF;
  return false;
}

std::string contentsOf(const char* path) {
  std::ifstream file(path);
  std::stringstream text;
  text << file.rdbuf();
  if (!file) throw std::runtime_error(std::string("cannot read ") + path);
  return text.str();
}

} // namespace

} // namespace trial

// The product's calls come here instead of into the C library.
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {

int __real_select(int count, fd_set* in, fd_set* out, fd_set* bad, timeval* timeout);

int __wrap_select(int count, fd_set* in, fd_set* out, fd_set* bad, timeval* timeout) {
  if (in == nullptr) return __real_select(count, in, out, bad, timeout); // a pause
  return trial::isMine() ? trial::world->select(*timeout) : -1;
}
ssize_t __wrap_read(int, void* buffer, size_t size) { return trial::isMine() ? trial::world->read(buffer, size) : -1; }
int __wrap_msgsnd(int, const void*, size_t, int) { return trial::isMine() ? trial::world->msgsnd() : -1; }

} // extern "C"
// NOLINTEND(bugprone-reserved-identifier)

int main(int argc, char** argv) {
  try {
    const std::string page = argc > 1 ? trial::contentsOf(argv[1]) : "";
    const unsigned long faults = argc > 2 ? std::stoul(argv[2]) : trial::exchanges;
    return trial::run(page, static_cast<unsigned>(faults)) ? 0 : 1;
  } catch (const std::exception& error) {
    (void)fprintf(stderr, "tev-exchange: %s\n", error.what());
    return 2;
  }
}
