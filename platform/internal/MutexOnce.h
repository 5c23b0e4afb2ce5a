// A mutex that is made when it is first needed and lives as long as the process.
#ifndef TEV_PLATFORM_MUTEXONCE_H
#define TEV_PLATFORM_MUTEXONCE_H

#include "platform/krLock.h"

#include <atomic>

namespace kr {

/// The mutex in `place`, made by whoever comes first. Null when there is no memory for it; the next call tries again.
inline KrMutex* mutexOnce(std::atomic<KrMutex*>& place) {
  KrMutex* present = place.load(std::memory_order_acquire);
  if (present != nullptr) return present;
  KrMutex* const made = krMutexCreate();
  if (made != nullptr && place.compare_exchange_strong(present, made, std::memory_order_acq_rel)) return made;
  krMutexDestroy(made);
  return present;
}

} // namespace kr

#endif
