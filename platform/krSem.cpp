#include "platform/krLock.h"

#include "platform/internal/Failure.h"
#include "platform/internal/Wait.h"
#include "platform/krMem.h"

#include <new>
#include <semaphore.h>

struct KrSem {
  sem_t count;
  pthread_cond_t wakeUp; ///< this, `guard`, `deleted` and `waiters`: see Wait.h
  pthread_mutex_t guard;
  std::atomic<int> deleted;
  std::atomic<unsigned> waiters;
};

namespace {

int tryTake(KrSem* sem) {
  if (sem_trywait(&sem->count) == 0) return 0;
  return errno == EAGAIN ? EBUSY : errno;
}

bool gone(const KrSem* sem) { return sem == nullptr || sem->deleted.load() != 0; }

} // namespace

KrSem* krSemCreate(unsigned int initial) {
  return kr::uncancelled([initial]() -> KrSem* {
    void* const block = krMalloc(sizeof(KrSem));
    if (block == nullptr) {
      errno = KR_ERR_NO_MEMORY;
      return nullptr;
    }
    auto* const sem = new (block) KrSem{};
    if (sem_init(&sem->count, 0, initial) != 0) {
      const int error = errno;
      krFree(block);
      errno = error;
      return nullptr;
    }
    // Neither fails for a default mutex and condition.
    (void)pthread_mutex_init(&sem->guard, nullptr);
    (void)pthread_cond_init(&sem->wakeUp, nullptr);
    return sem;
  });
}

KrSem* krSemBinaryCreate(unsigned int initial) { return krSemCreate(initial); }

int krSemTake(KrSem* sem, int timeoutMs) {
  if (gone(sem)) return kr::failWith(KR_ERR_INVALID);
  const int error = tryTake(sem);
  if (error == 0) return 0;
  if (error != EBUSY || timeoutMs == KR_NO_WAIT) return -1; // errno is that of the try
  return kr::uncancelled([=](int cancelState) {
    const timespec deadline = kr::deadlineAfter(timeoutMs);
    kr::enter(sem);
    const int result = kr::waitForTurn(sem, timeoutMs == KR_WAIT_FOREVER ? nullptr : &deadline, cancelState,
                                       [sem] { return tryTake(sem); });
    kr::leave(sem);
    return result == 0 ? 0 : kr::failWith(result);
  });
}

int krSemGive(KrSem* sem) {
  if (gone(sem)) return kr::failWith(KR_ERR_INVALID);
  return kr::uncancelledIfAsynchronous([sem] {
    if (sem_post(&sem->count) != 0) return -1;
    kr::wakeWaiters(sem);
    return 0;
  });
}

void krSemFlush(KrSem* sem) {
  if (gone(sem)) return;
  kr::uncancelledIfAsynchronous([sem] { kr::wakeAll(sem); });
}

int krSemGetValue(KrSem* sem) {
  if (gone(sem)) return kr::failWith(KR_ERR_INVALID);
  int value = 0;
  return sem_getvalue(&sem->count, &value) == 0 ? value : -1;
}

void krSemDestroy(KrSem* sem) {
  if (sem == nullptr) return;
  kr::uncancelled([sem] {
    kr::endWaiting(sem);
    // Fails only for what is no semaphore.
    (void)sem_destroy(&sem->count);
    krFree(sem);
  });
}
