#include "trial/MixUps.h"

#include <algorithm>
#include <optional>

namespace trial {

namespace {

bool isOf(const Lying& lying, unsigned exchange) { return lying.unit.exchange == exchange; }

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

} // namespace

std::string ruledOut(const World& w, size_t stray) {
  bool allInTime = stray == 0;
  for (unsigned i = 0; i < exchanges; ++i) {
    const Exchange& exchange = w.exchange(i);
    const std::string who = "exchange " + std::to_string(i + 1);
    const bool drained = exchange.lay <= drainedMax;
    allInTime = allInTime && exchange.behaviour == Behaviour::whole && !exchange.timedOut;
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

std::vector<MixUp> mixUpsOfStrayBytes() {
  std::vector<MixUp> all = mixUps();
  all.insert(all.begin(), {"what one drain left of more than 1024 bytes", [](const World& w, unsigned i) {
                             const auto& got = w.exchange(i).got;
                             const auto isStray = [](const Lying& l) { return isOf(l, nobody); };
                             return w.exchange(i).replied && std::any_of(got.begin(), got.end(), isStray);
                           }});
  return all;
}

} // namespace trial
