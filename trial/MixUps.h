// What the protocol of the exchange rules out, and what it permits.
#ifndef TEV_TRIAL_MIXUPS_H
#define TEV_TRIAL_MIXUPS_H

#include "trial/World.h"

namespace trial {

/// What happened on a way, with `strayBytes` at its start, that must not; empty for nothing.
inline std::string ruledOut(const World& world, size_t strayBytes) {
  bool allInTime = strayBytes == 0, allOwn = true;
  for (unsigned i = 0; i < exchanges; ++i) {
    const Exchange& exchange = world.all[i];
    const std::string who = "exchange " + std::to_string(i + 1);
    const bool drained = exchange.pending <= drainedMax;
    const bool own = isOwn(exchange, i);
    allOwn = allOwn && own;
    allInTime = allInTime && exchange.behaviour == Behaviour::whole && !exchange.timedOut;
    for (const PendingUnit& pending : exchange.got) {
      const unsigned from = pending.unit.exchange;
      if (from != stray && from > i) return who + " got bytes of a later reply";
      if (drained && pending.since < exchange.drainedAt) return who + " got bytes that its drain had to take";
      if (drained && from < i && pending.since <= world.all[from].endedAt)
        return who + " got bytes of another reply that were not late";
    }
    if (exchange.replied && exchange.timedOut) return who + " timed out and has a reply";
    const bool answered = exchange.behaviour == Behaviour::whole || exchange.behaviour == Behaviour::twice;
    if (drained && exchange.quiet && !own && (exchange.replied || (answered && !exchange.timedOut)))
      return who + " has not its own reply, although nothing else was on its way";
  }
  return allInTime && !allOwn ? "a mix-up although every reply came once, whole and in time" : world.fault;
}

constexpr size_t mixUps = 13;
/// What may happen: the last only with more stray bytes than a drain takes.
constexpr const char* titles[mixUps] = {"a late reply of the same service",
                                        "a late reply of another service",
                                        "a reply that came twice, after the first was taken",
                                        "the front of a longer late reply",
                                        "a shorter late reply, or half of one, and then its own",
                                        "the rest of a late reply, and then its own",
                                        "half of its own, and then late bytes",
                                        "pieces of late replies only",
                                        "each the reply of the one before",
                                        "a reply to a request that was not sent",
                                        "its own reply, in the third try to read it",
                                        "no reply, because bytes of another came first",
                                        "what one drain left of more than 1024 bytes"};

/// Whether the units come from one copy of a reply, in order.
inline bool isOfOne(const Exchange& exchange) {
  const Unit first = exchange.got.empty() ? Unit{} : exchange.got[0].unit;
  for (size_t i = 0; i < exchange.got.size(); ++i) {
    const Unit& unit = exchange.got[i].unit;
    if (unit.exchange != first.exchange || unit.copy != first.copy || unit.index != first.index + i) return false;
  }
  return exchange.replied;
}

inline bool isWholeOf(const World& world, unsigned i, unsigned from) {
  const Exchange& exchange = world.all[i];
  return isOfOne(exchange) && exchange.got[0].unit.exchange == from && exchange.got[0].unit.index == 0 &&
         exchange.got.size() == world.all[from].request->units;
}

/// Which of them happened to exchange `i`.
inline std::array<bool, mixUps> mixUpsOf(const World& world, unsigned i) {
  const Exchange& exchange = world.all[i];
  const Unit first = exchange.got.empty() ? Unit{} : exchange.got[0].unit;
  const auto has = [&exchange](unsigned from) {
    return std::any_of(exchange.got.begin(), exchange.got.end(), [&](auto& p) { return p.unit.exchange == from; });
  };
  const bool late = isOfOne(exchange) && first.exchange < i;
  const Exchange& source = world.all[late ? first.exchange : i];
  const bool whole = late && isWholeOf(world, i, first.exchange);
  const bool pieced = exchange.replied && !isOfOne(exchange);
  const bool startsLate = pieced && first.exchange != i && has(i);
  return {whole && source.request->service == exchange.request->service,
          whole && source.request->service != exchange.request->service,
          late && first.copy == 1 && isOwn(source, first.exchange) && source.got[0].unit.copy == 0,
          late && first.index == 0 && exchange.got.size() < source.request->units,
          startsLate && first.index == 0,
          startsLate && first.index > 0,
          pieced && first.exchange == i,
          pieced && !has(i),
          i >= 2 && isWholeOf(world, i, i - 1) && isWholeOf(world, i - 1, i - 2),
          exchange.behaviour == Behaviour::refused && exchange.replied,
          isOwn(exchange, i) && exchange.reads == 3,
          !exchange.replied && !exchange.timedOut && exchange.behaviour == Behaviour::whole,
          exchange.replied && has(stray)};
}

} // namespace trial

#endif
