// The polling condition from the inside, for the read-write lock that is built on it.
#ifndef TEV_PLATFORM_COND_H
#define TEV_PLATFORM_COND_H

#include "platform/internal/Failure.h"
#include "platform/internal/Mutex.h"
#include "platform/internal/Uncancelled.h"
#include "platform/internal/Wait.h"

#include <atomic>
#include <cerrno>
#include <cstdint>

constexpr int KR_COND_WAITERS = 20;

struct KrCond {
  std::atomic<uintptr_t> busy;                      ///< 1 while being created and once destroyed
  std::atomic<KrThreadId> waiters[KR_COND_WAITERS]; ///< KR_NO_THREAD in an empty slot
};
static_assert(sizeof(KrCond) == (1 + KR_COND_WAITERS) * sizeof(KrThreadId));

namespace kr {

/// Where the library's own calls lock, as the reports of long waits name it. Name and numbers are part of the reports'
/// text: they never change, wherever the calls are.
inline constexpr char commonSource[] = "linux/../common/kr";
constexpr int condWaitLine = 122, readWriteCreateLine = 182, readUnlockLine = 234, writeUnlockLine = 271,
              readLockLine = 318, writeLockLine = 452;

/// krCondWait for callers that have cancellation disabled: blocks in `cancelState`. A thread cancelled meanwhile does
/// not hold the mutex, and does `undo`.
template <class Undo>
int condWait(KrCond* cond, KrMutex* mutex, int cancelState, Undo undo) {
  errno = 0;
  if (cond == nullptr || mutex == nullptr || cond->busy.load() != 0) return failWith(KR_ERR_INVALID);
  const KrThreadId self = krThreadIdSelf();
  // Into the first empty slot; with none left the thread waits all the same.
  for (auto& slot : cond->waiters) {
    KrThreadId empty = KR_NO_THREAD;
    if (slot.compare_exchange_strong(empty, self)) break;
  }
  if (krMutexUnlock(mutex) != 0) return -1;
  OnCancel onCancel{undo};
  pollPause(cancelState);
  const int result = lockMutex(mutex, {commonSource, condWaitLine, "krCondWait", ""}, cancelState);
  onCancel.armed = false;
  return result;
}

} // namespace kr

#endif
