#include "platform/internal/Cond.h"

#include "platform/krMem.h"

#include <new>

KrCond* krCondCreate() {
  return kr::uncancelled([]() -> KrCond* {
    void* const block = krMalloc(sizeof(KrCond));
    if (block == nullptr) {
      errno = KR_ERR_NO_MEMORY;
      return nullptr;
    }
    auto* const cond = new (block) KrCond{};
    cond->busy.store(1);
    for (auto& slot : cond->waiters)
      slot.store(KR_NO_THREAD);
    cond->busy.store(0);
    errno = 0;
    return cond;
  });
}

int krCondWait(KrCond* cond, KrMutex* mutex) {
  return kr::uncancelled([=](int cancelState) { return kr::condWait(cond, mutex, cancelState, [] {}); });
}

int krCondTimedWait(KrCond*, KrMutex*, int) { return kr::failWith(ENOSYS); }

int krCondSignal(KrCond* cond) {
  errno = 0;
  if (cond == nullptr || cond->busy.load() != 0) return kr::failWith(KR_ERR_INVALID);
  for (auto& slot : cond->waiters)
    slot.store(KR_NO_THREAD);
  return 0;
}

void krCondDestroy(KrCond* cond) {
  errno = 0;
  if (cond == nullptr) {
    errno = KR_ERR_INVALID;
    return;
  }
  cond->busy.store(1);
  krFree(cond);
}
