// The calling thread's id at the price of one load, for the paths where a call to pthread_self() would be noticed.
#ifndef TEV_PLATFORM_SELF_H
#define TEV_PLATFORM_SELF_H

#include "platform/krThreadId.h"

#include <cstdint>

namespace kr {

inline thread_local KrThreadId selfOnceAsked = 0;

inline KrThreadId self() {
  if (selfOnceAsked == 0) selfOnceAsked = pthread_self();
  return selfOnceAsked;
}

/// What a 32-bit conversion prints of a thread id, and what the header of a heap block keeps of it.
inline uint32_t shortId(KrThreadId tid) { return static_cast<uint32_t>(tid); }

/// The same for the conversions that print signed numbers.
inline int signedId(KrThreadId tid) { return static_cast<int>(shortId(tid)); }

} // namespace kr

#endif
