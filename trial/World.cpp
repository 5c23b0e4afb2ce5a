#include "trial/World.h"

#include "messaging/GetVideoResolutionReqMsg.h"
#include "messaging/SetVideoModeReqMsg.h"
#include "messaging/StreamControlReqMsg.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <memory>
#include <utility>

namespace trial {

namespace {

template <class Message>
MsgObj* make(unsigned long source) {
  auto* message = new Message(source, 98307); // the destination is not looked at here
  message->SetSync();
  message->SetRemote();
  return message;
}

std::string nameOf(const Write& write, size_t units) {
  std::string name = "reply " + std::to_string(write.exchange + 1);
  if (write.copy > 0) name += " again";
  if (write.to < units) return "the first half of " + name;
  return write.from > 0 ? "the second half of " + name : name;
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

} // namespace

const Request requests[] = {{"video-format", 0, 20 / unitSize, make<SetVideoModeReqMsg>},
                            {"video-resolution", 0, 28 / unitSize, make<GetVideoResolutionReqMsg>},
                            {"stream", 1, 20 / unitSize, make<StreamControlReqMsg>}};

// ---- What the services do

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

int World::poll(int timeout) {
  Exchange& exchange = _all[_current];
  const bool draining = _stage == Stage::drains;
  const int whole = draining ? 1 : 3000;
  const bool again = std::exchange(_interrupted, 0) == whole; // for the rest of the time
  if (!draining && _stage != Stage::waits) wrong("waits where it should not");
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
  if (draining) {
    ++_now;
    exchange.drainedAt = _now;
    exchange.lay = _pipe.size() * unitSize;
    exchange.quiet = !somethingDue();
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
  if (_interrupted != 0) wrong("does not drain after a signal");
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

bool isOwn(const Exchange& exchange, unsigned number) {
  for (size_t i = 0; i < exchange.got.size(); ++i) {
    const Unit& unit = exchange.got[i].unit;
    if (unit.exchange != number || unit.copy != exchange.got[0].unit.copy || unit.index != i) return false;
  }
  return exchange.replied;
}

void World::run(std::vector<std::string>* story) {
  current = this;
  _story = story;
  for (size_t i = 0; i < _trial.stray / unitSize; ++i)
    _pipe.push_back({{nobody, 0, static_cast<uint8_t>(i & 31U)}, 0});
  for (_current = 0; _current < exchanges; ++_current) {
    Exchange& exchange = _all[_current];
    exchange.request = &requests[_choices.pick(std::size(requests))];
    tell(who() + " " + exchange.request->name);
    _stage = Stage::drains;
    const std::unique_ptr<MsgObj> reply(exchange.request->make(_console.GetTaskId())->Send());
    if (std::exchange(_interrupted, 0) != 0) wrong("does not wait on after a signal");
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
  current = nullptr;
}

} // namespace trial
