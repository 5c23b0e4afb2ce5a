// What the protocol of the exchange rules out, and what it permits.
#ifndef TEV_TRIAL_MIXUPS_H
#define TEV_TRIAL_MIXUPS_H

#include "trial/World.h"

#include <functional>
#include <string>
#include <vector>

namespace trial {

/// What happened on a way, with `stray` bytes at its start, that must not; empty for nothing.
std::string ruledOut(const World& w, size_t stray);

/// What may happen.
struct MixUp {
  const char* title;
  std::function<bool(const World& w, unsigned i)> happened; // to exchange i
  unsigned long ways = 0;
  unsigned fewestSteps = ~0U;
  std::vector<std::string> story = {};
};

/// Of every kind that late and faulty replies bring about.
std::vector<MixUp> mixUps();
/// First the one that too many stray bytes bring about, then those.
std::vector<MixUp> mixUpsOfStrayBytes();

} // namespace trial

#endif
