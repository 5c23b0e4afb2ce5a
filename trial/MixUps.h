// What the protocol of the exchange rules out, and what it permits.
#ifndef TEV_TRIAL_MIXUPS_H
#define TEV_TRIAL_MIXUPS_H

#include "trial/World.h"

#include <array>

namespace trial {

/// What happened on a way that must not, unless there were stray bytes at its start; empty for nothing.
inline std::string ruledOut(const World& world, bool strayBytes) {
  bool allInTime = !strayBytes, allOwn = true;
  for (unsigned i = 0; i < exchanges; ++i) {
    const Exchange& exchange = world.all[i];
    const std::string who = "exchange " + std::to_string(i + 1);
    const bool own = world.isOwn(i);
    allOwn = allOwn && own;
    allInTime = allInTime && exchange.behaviour == Behaviour::whole && !exchange.timedOut;
    for (const Piece& piece : exchange.got) {
      if (piece.exchange != stray && piece.exchange > i) return who + " got bytes of a later reply";
      if (exchange.drained && piece.since < exchange.drainedAt) return who + " got bytes that its drain had to take";
      if (exchange.drained && piece.exchange < i && piece.since <= world.all[piece.exchange].endedAt)
        return who + " got bytes of another reply that were not late";
    }
    if (exchange.replied && exchange.timedOut) return who + " timed out and has a reply";
    const bool answered = exchange.behaviour == Behaviour::whole || exchange.behaviour == Behaviour::twice;
    if (exchange.drained && exchange.quiet && !own && (exchange.replied || (answered && !exchange.timedOut)))
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

/// Which of them happened to exchange `i`.
inline std::array<bool, mixUps> mixUpsOf(const World& world, unsigned i) {
  const Exchange& exchange = world.all[i];
  const Piece first = exchange.got.empty() ? Piece{} : exchange.got[0];
  const auto has = [&exchange](unsigned from) {
    return std::any_of(exchange.got.begin(), exchange.got.end(), [&](auto& piece) { return piece.exchange == from; });
  };
  const auto hasReplyTo = [&world](unsigned which, unsigned from) {
    return world.all[which].hasWhole(from, world.all[from].request->replySize);
  };
  const bool late = exchange.hasOne() && first.exchange < i;
  const unsigned from = late ? first.exchange : i;
  const Exchange& source = world.all[from];
  const bool sameService = source.request->service == exchange.request->service;
  const bool pieced = exchange.replied && !exchange.hasOne();
  const bool startsLate = pieced && first.exchange != i && has(i);
  return {late && hasReplyTo(i, from) && sameService,
          late && hasReplyTo(i, from) && !sameService,
          late && first.copy == 1 && world.isOwn(from) && source.got[0].copy == 0,
          late && first.from == 0 && first.to < source.request->replySize,
          startsLate && first.from == 0,
          startsLate && first.from > 0,
          pieced && first.exchange == i,
          pieced && !has(i),
          i >= 2 && hasReplyTo(i, i - 1) && hasReplyTo(i - 1, i - 2),
          exchange.behaviour == Behaviour::refused && exchange.replied,
          world.isOwn(i) && exchange.reads == 3,
          !exchange.replied && !exchange.timedOut && exchange.behaviour == Behaviour::whole,
          exchange.replied && has(stray)};
}

} // namespace trial

#endif
