#include "platform/LiveThreads.h"

#include "platform/Failure.h"
#include "platform/Self.h"
#include "platform/Uncancelled.h"
#include "platform/krThread.h"

#include <cerrno>
#include <cstdlib>

namespace {

struct LiveThread {
  KrThreadId tid;
  intptr_t owner;
  uint64_t serial;  ///< handles come again, these do not
  unsigned holders; ///< for whom it does not end yet
  LiveThread* next;
};

// Nothing here is ever destroyed: threads may outlive the end of main().
pthread_mutex_t listLock = PTHREAD_MUTEX_INITIALIZER; // held for moments, with cancellation disabled
pthread_cond_t listChanged = PTHREAD_COND_INITIALIZER;
LiveThread* list = nullptr;
uint64_t lastSerial = 0;
pthread_key_t leaving;
bool haveKey = false;

class ListHeld {
public:
  ListHeld() { (void)pthread_mutex_lock(&listLock); }
  ~ListHeld() { (void)pthread_mutex_unlock(&listLock); }
  ListHeld(const ListHeld&) = delete;
  ListHeld& operator=(const ListHeld&) = delete;
};

/// The place in the list that points to the thread, or to the list's end.
LiveThread** find(KrThreadId tid) {
  LiveThread** place = &list;
  while (*place != nullptr && (*place)->tid != tid)
    place = &(*place)->next;
  return place;
}

void remove(KrThreadId tid) {
  LiveThread** const place = find(tid);
  LiveThread* const gone = *place;
  *place = gone->next;
  free(gone);
  (void)pthread_cond_broadcast(&listChanged);
}

/// The end of a thread. Nothing cancels it any more.
void atThreadEnd(void* thread) {
  kr::afterUnwinding();
  const ListHeld held;
  while (static_cast<LiveThread*>(thread)->holders != 0)
    (void)pthread_cond_wait(&listChanged, &listLock);
  remove(kr::self());
}

/// With the list's lock held, waits for the end of a thread that is in the list.
void awaitEnd(KrThreadId tid, int cancelState) {
  const uint64_t serial = (*find(tid))->serial;
  kr::OnCancel onCancel{[] { (void)pthread_mutex_unlock(&listLock); }};
  for (const LiveThread* thread = *find(tid); thread != nullptr && thread->serial == serial; thread = *find(tid))
    (void)kr::cancellable(cancelState, [] { return pthread_cond_wait(&listChanged, &listLock); });
  onCancel.armed = false;
}

} // namespace

namespace kr {

int createThread(KrThreadId* tid, const pthread_attr_t* attributes, void* startBlock, intptr_t owner) {
  auto* const thread = static_cast<LiveThread*>(malloc(sizeof(LiveThread)));
  if (thread == nullptr) return ENOMEM;
  // Under the lock the new thread is in the list before it looks for itself there.
  const ListHeld held;
  int error = haveKey ? 0 : pthread_key_create(&leaving, atThreadEnd);
  haveKey = error == 0;
  if (error == 0) error = prepareCancelling();
  if (error == 0) error = pthread_create(tid, attributes, linuxEntry, startBlock);
  if (error != 0) {
    free(thread);
    return error;
  }
  *thread = LiveThread{*tid, owner, ++lastSerial, 1, list};
  list = thread;
  return 0;
}

bool hold(KrThreadId tid, intptr_t owner) {
  const ListHeld held;
  LiveThread* const thread = *find(tid);
  if (thread == nullptr || thread->owner != owner) return false;
  ++thread->holders;
  return true;
}

void letGo(KrThreadId tid) {
  const ListHeld held;
  --(*find(tid))->holders;
  (void)pthread_cond_broadcast(&listChanged);
}

bool stayTillTheEnd() {
  const ListHeld held;
  LiveThread* const thread = *find(self());
  // A thread that somebody else created with linuxEntry.
  if (thread == nullptr) return true;
  if (pthread_setspecific(leaving, thread) == 0) return true;
  while (thread->holders != 0)
    (void)pthread_cond_wait(&listChanged, &listLock);
  remove(self());
  return false;
}

int cancel(KrThreadId tid) {
  return uncancelled([tid] {
    const ListHeld held;
    return *find(tid) != nullptr ? cancelThread(tid) : pthread_cancel(tid);
  });
}

void endThread(KrThreadId tid, intptr_t owner) {
  uncancelled([=](int cancelState) {
    (void)pthread_mutex_lock(&listLock);
    const LiveThread* const thread = *find(tid);
    if (thread != nullptr && thread->owner == owner) {
      (void)cancelThread(tid); // fails only for a thread that does not exist
      if (tid != self()) awaitEnd(tid, cancelState);
    }
    (void)pthread_mutex_unlock(&listLock);
  });
}

} // namespace kr

int krThreadAwaitEnd(KrThreadId tid) {
  if (tid == kr::self()) return kr::failWith(EDEADLK);
  return kr::uncancelled([tid](int cancelState) {
    (void)pthread_mutex_lock(&listLock);
    if (*find(tid) != nullptr) awaitEnd(tid, cancelState);
    (void)pthread_mutex_unlock(&listLock);
    return 0;
  });
}
