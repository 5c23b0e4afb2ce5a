// The services that the synchronous exchange meets, and the pipe between them: the system calls that it makes on queue
// and pipe end here. The services answer at any moment: on time, late, twice, never, half or in two halves.
#ifndef TEV_TRIAL_WORLD_H
#define TEV_TRIAL_WORLD_H

#include "messaging/CommObj.h"
#include "messaging/MsgObj.h"
#include "trial/Choices.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <deque>
#include <iterator>
#include <string>
#include <sys/types.h>
#include <vector>

namespace trial {

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
extern const Request requests[3];

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
  bool signals;    // may interrupt a wait once; that is a fault
};

/// Whether it got all of one copy of its own reply and nothing else.
bool isOwn(const Exchange& exchange, unsigned number);

class World {
public:
  /// Set between an exchange's drain and the end of its reply.
  inline static std::atomic<bool> busy{false};

  World(const Trial& trial, Choices& choices, CommObj& console) : _trial(trial), _choices(choices), _console(console) {}

  /// The one whose way is being gone, to which the calls come; null between two ways.
  inline static World* current = nullptr;

  /// One way through. Tells what happens on it, if asked to.
  void run(std::vector<std::string>* story = nullptr);

  const Exchange& exchange(unsigned i) const { return _all[i]; }
  const std::string& fault() const { return _fault; }

  // The system calls.
  int poll(int timeout);
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
  int _interrupted = 0; // milliseconds that the interrupted wait was for
  Stage _stage = Stage::drains;
  std::deque<Lying> _pipe;
  std::deque<Write> _due[services];
  Exchange _all[exchanges];
  std::string _fault;
};

} // namespace trial

#endif
