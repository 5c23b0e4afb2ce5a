#include "platform/krLock.h"

#include "platform/internal/Cond.h"
#include "platform/internal/Diagnostic.h"
#include "platform/internal/Failure.h"
#include "platform/internal/Self.h"
#include "platform/krMem.h"

#include <algorithm>
#include <atomic>
#include <iterator>
#include <new>

namespace {

constexpr int readerSlots = 20;
constexpr unsigned reportRounds = 1000;

struct Reader {
  KrThreadId id; ///< 0 in a free slot
  unsigned count;
};

} // namespace

struct KrReadWrite {
  KrMutex* guard;
  KrThreadId writer; ///< 0 for none
  unsigned writerCount;
  Reader readers[readerSlots];
  int waiting; ///< writers that wait; no new reader gets in while there are any
  KrCond* writersTurn;
  KrCond* readersTurn;
  bool deleted;
  std::atomic<unsigned> callers; ///< threads in a lock or unlock call; the destroyer waits for them
};

namespace {

/// What a lock call waits as: for its report and its turn.
struct Seeker {
  const char* function;
  const char* filePrefix;
  KrCond* KrReadWrite::*turn;
  const char* file;
  int line;
  const char* caller;
};

int lockGuard(KrReadWrite* lock, int line, const char* function, int cancelState) {
  return kr::lockMutex(lock->guard, {kr::commonSource, line, function, ""}, cancelState);
}

Reader* slotOf(KrReadWrite* lock, KrThreadId id) {
  Reader* const end = lock->readers + readerSlots;
  Reader* const slot = std::find_if(lock->readers, end, [id](const Reader& reader) { return reader.id == id; });
  return slot != end ? slot : nullptr;
}

bool othersRead(const KrReadWrite* lock, KrThreadId self) {
  return std::any_of(std::begin(lock->readers), std::end(lock->readers),
                     [self](const Reader& reader) { return reader.id != 0 && reader.id != self && reader.count != 0; });
}

void reportExcessiveWait(const KrReadWrite* lock, const Seeker& seeker) {
  const auto id = [lock](int slot) { return kr::signedId(lock->readers[slot].id); };
  const kr::Line line = kr::stampedLine(
      "%s: Excessive wait for lock[%p], File[%s], Line[%d], Func[%s], waiting[%d], writer[%d], "
      "reader0[%d], reader1[%d], reader2[%d], reader3[%d], reader4[%d]\n",
      seeker.function, static_cast<const void*>(lock), kr::orEmpty(seeker.file), seeker.line,
      kr::orEmpty(seeker.caller), lock->waiting, kr::signedId(lock->writer), id(0), id(1), id(2), id(3), id(4));
  char path[64];
  (void)snprintf(path, sizeof path, "%s/%sExcessiveWait%p.log", kr::logDirectory, seeker.filePrefix,
                 static_cast<const void*>(lock));
  kr::writeFile(path, "w+e", line);
}

/// With the guard held, waits until `mayEnter`, looking every millisecond. Returns 0 with the guard held; or -1 without
/// it, the lock being destroyed. `giveUp` is done, with the guard held, when the thread does not get in.
template <class MayEnter, class GiveUp>
int waitToEnter(KrReadWrite* lock, const Seeker& seeker, int cancelState, MayEnter mayEnter, GiveUp giveUp) {
  const auto leave = [=] {
    giveUp();
    (void)krMutexUnlock(lock->guard);
  };
  for (unsigned rounds = 1;; ++rounds) {
    if (lock->deleted) {
      leave();
      return kr::failWith(KR_ERR_INVALID);
    }
    if (mayEnter()) break;
    // The guard lives as long as there are callers, so that waiting and locking it again succeed.
    (void)kr::condWait(lock->*seeker.turn, lock->guard, cancelState, [=] {
      (void)lockGuard(lock, kr::condWaitLine, "krCondWait", PTHREAD_CANCEL_DISABLE);
      leave();
    });
    if (rounds % reportRounds == 0) reportExcessiveWait(lock, seeker);
  }
  return 0;
}

/// Runs the body of a lock or unlock call with the guard held.
template <class Body>
int guarded(KrReadWrite* lock, int line, const char* function, Body body) {
  if (lock == nullptr) return kr::failWith(KR_ERR_INVALID);
  return kr::uncancelled([&](int cancelState) {
    ++lock->callers;
    kr::OnCancel last{[lock] { --lock->callers; }}; // without it as well; nothing of the lock is touched afterwards
    if (lockGuard(lock, line, function, cancelState) != 0) return -1;
    return body(cancelState);
  });
}

/// Gives the guard back and is the result to return: 0, or -1 with that errno.
int leaveWith(KrReadWrite* lock, int error) {
  (void)krMutexUnlock(lock->guard);
  return error == 0 ? 0 : kr::failWith(error);
}

bool makeParts(KrReadWrite* lock) {
  lock->guard = krMutexCreate();
  if (lock->guard == nullptr) return false;
  (void)lockGuard(lock, kr::readWriteCreateLine, "krReadWriteCreate", PTHREAD_CANCEL_DISABLE);
  lock->writersTurn = krCondCreate();
  lock->readersTurn = lock->writersTurn != nullptr ? krCondCreate() : nullptr;
  (void)krMutexUnlock(lock->guard);
  if (lock->readersTurn != nullptr) return true;
  if (lock->writersTurn != nullptr) krCondDestroy(lock->writersTurn);
  krMutexDestroy(lock->guard);
  return false;
}

} // namespace

KrReadWrite* krReadWriteCreate() {
  return kr::uncancelled([]() -> KrReadWrite* {
    void* const block = krMalloc(sizeof(KrReadWrite));
    if (block != nullptr && makeParts(new (block) KrReadWrite{})) return static_cast<KrReadWrite*>(block);
    krFree(block);
    errno = KR_ERR_NO_MEMORY;
    return nullptr;
  });
}

int krWriteLockDebug(KrReadWrite* lock, const char* file, int line, const char* function) {
  return guarded(lock, kr::writeLockLine, "krWriteLockDebug", [=](int cancelState) {
    const KrThreadId self = kr::self();
    if (lock->writer != self) {
      const Seeker seeker{"krWriteLock", "writeLock", &KrReadWrite::writersTurn, file, line, function};
      ++lock->waiting;
      if (waitToEnter(
              lock, seeker, cancelState, [=] { return lock->writer == 0 && !othersRead(lock, self); },
              [=] { --lock->waiting; }) != 0)
        return -1;
      --lock->waiting;
      lock->writer = self;
    }
    ++lock->writerCount;
    return leaveWith(lock, 0);
  });
}

int krReadLockDebug(KrReadWrite* lock, const char* file, int line, const char* function) {
  return guarded(lock, kr::readLockLine, "krReadLockDebug", [=](int cancelState) {
    const KrThreadId self = kr::self();
    Reader* slot = slotOf(lock, self);
    if (slot == nullptr) {
      if (lock->writer == self) return leaveWith(lock, KR_ERR_INVALID);
      const Seeker seeker{"krReadLock", "readLock", &KrReadWrite::readersTurn, file, line, function};
      // Without a free slot there is nothing to wait for: it would come at nobody's turn.
      const auto full = [=] { return slotOf(lock, 0) == nullptr; };
      if (waitToEnter(
              lock, seeker, cancelState, [=] { return full() || (lock->writer == 0 && lock->waiting == 0); }, [] {}) !=
          0)
        return -1;
      slot = slotOf(lock, 0);
      if (slot == nullptr) return leaveWith(lock, KR_ERR_NO_MEMORY);
      slot->id = self;
    }
    ++slot->count;
    return leaveWith(lock, 0);
  });
}

int krWriteUnlock(KrReadWrite* lock) {
  return guarded(lock, kr::writeUnlockLine, "krWriteUnlock", [=](int) {
    if (lock->writer != kr::self()) return leaveWith(lock, EPERM);
    if (--lock->writerCount == 0) {
      lock->writer = 0;
      // Fails only for a condition that is being destroyed.
      (void)krCondSignal(lock->waiting != 0 ? lock->writersTurn : lock->readersTurn);
    }
    return leaveWith(lock, 0);
  });
}

int krReadUnlock(KrReadWrite* lock) {
  return guarded(lock, kr::readUnlockLine, "krReadUnlock", [=](int) {
    Reader* const slot = slotOf(lock, kr::self());
    if (slot == nullptr) return leaveWith(lock, EPERM);
    if (--slot->count == 0) {
      slot->id = 0;
      (void)krCondSignal(lock->writersTurn); // as above
    }
    return leaveWith(lock, 0);
  });
}

void krReadWriteDestroy(KrReadWrite* lock) {
  if (lock == nullptr) return;
  kr::uncancelled([lock] {
    // Whoever waits looks again within a millisecond and leaves.
    (void)lockGuard(lock, 0, "krReadWriteDestroy", PTHREAD_CANCEL_DISABLE);
    lock->deleted = true;
    (void)krMutexUnlock(lock->guard);
    while (lock->callers != 0)
      krThreadSuspend(1);
    krCondDestroy(lock->writersTurn);
    krCondDestroy(lock->readersTurn);
    krMutexDestroy(lock->guard);
    krFree(lock);
  });
}
