#include "platform/internal/LiveThreads.h"

#include "platform/Descriptor.h"
#include "platform/internal/Failure.h"
#include "platform/internal/Self.h"
#include "platform/internal/Uncancelled.h"
#include "platform/krThread.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <iterator>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

struct LiveThread {
  KrThreadId tid;
  intptr_t owner;
  uint64_t serial; ///< handles come again, these do not
  bool detached;
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

/// Those that have left the list last, known by handle and processor-time clock: the kernel may still have them.
struct {
  KrThreadId tid;
  clockid_t clock;
} leavers[64];
unsigned lastLeaver = 0;

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

/// The calling thread leaves the list.
void leaveList() {
  kr::endCancelling();
  auto& leaver = leavers[++lastLeaver % std::size(leavers)];
  leaver.tid = kr::self();
  (void)pthread_getcpuclockid(leaver.tid, &leaver.clock); // succeeds for the calling thread
  remove(leaver.tid);
}

bool ticks(clockid_t clock) {
  timespec time{};
  return clock_gettime(clock, &time) == 0;
}

bool isLeaving(KrThreadId tid) {
  return std::any_of(std::begin(leavers), std::end(leavers),
                     [tid](const auto& leaver) { return leaver.tid == tid && ticks(leaver.clock); });
}

bool anyLeaving() {
  return std::any_of(std::begin(leavers), std::end(leavers), [](const auto& leaver) {
    return leaver.tid != 0 && leaver.tid != kr::self() && ticks(leaver.clock);
  });
}

/// Enough of what the C library keeps behind a handle to find the kernel's number of the thread.
struct ControlBlock {
  alignas(64) char bytes[1024];
};

/// Copies what is behind a handle, as far as it is memory. False when nothing is.
bool copy(KrThreadId tid, ControlBlock* block) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) return false;
  const kr::Descriptor out(ends[0]), in(ends[1]);
  // Not through the function of that name: the sanitizers would look at the memory themselves.
  const ssize_t count = syscall(SYS_write, in.get(), tid, sizeof block->bytes);
  return count > 0 && read(out.get(), block->bytes, static_cast<size_t>(count)) == count;
}

/// Whether a handle that is not in the list is that of a thread.
bool existsElsewhere(KrThreadId tid) {
  ControlBlock block{};
  clockid_t clock = 0;
  return !isLeaving(tid) && copy(tid, &block) &&
         pthread_getcpuclockid(reinterpret_cast<KrThreadId>(&block), &clock) == 0 && ticks(clock);
}

/// The end of a thread. Nothing cancels it any more.
void atThreadEnd(void* thread) {
  kr::afterUnwinding();
  const kr::ThreadsHeld held;
  while (static_cast<LiveThread*>(thread)->holders != 0)
    (void)pthread_cond_wait(&listChanged, &listLock);
  leaveList();
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
  const ThreadsHeld held;
  int error = haveKey ? 0 : pthread_key_create(&leaving, atThreadEnd);
  haveKey = error == 0;
  if (error == 0) error = prepareCancelling();
  if (error == 0) error = pthread_create(tid, attributes, linuxEntry, startBlock);
  if (error != 0) {
    free(thread);
    return error;
  }
  int detached = PTHREAD_CREATE_JOINABLE;
  // Succeeds for attributes that a thread was made with.
  if (attributes != nullptr) (void)pthread_attr_getdetachstate(attributes, &detached);
  *thread = LiveThread{*tid, owner, ++lastSerial, detached == PTHREAD_CREATE_DETACHED, 1, list};
  list = thread;
  return 0;
}

bool hold(KrThreadId tid, intptr_t owner) {
  const ThreadsHeld held;
  LiveThread* const thread = *find(tid);
  if (thread == nullptr || thread->owner != owner) return false;
  ++thread->holders;
  return true;
}

void letGo(KrThreadId tid) {
  const ThreadsHeld held;
  --(*find(tid))->holders;
  (void)pthread_cond_broadcast(&listChanged);
}

bool stayTillTheEnd() {
  const ThreadsHeld held;
  LiveThread* const thread = *find(self());
  // A thread that was created with linuxEntry by other means.
  if (thread == nullptr) return true;
  if (pthread_setspecific(leaving, thread) == 0) return true;
  while (thread->holders != 0)
    (void)pthread_cond_wait(&listChanged, &listLock);
  leaveList();
  return false;
}

ThreadsHeld::ThreadsHeld() { (void)pthread_mutex_lock(&listLock); }

ThreadsHeld::~ThreadsHeld() { (void)pthread_mutex_unlock(&listLock); }

bool ThreadsHeld::exist(KrThreadId tid) const { return *find(tid) != nullptr || existsElsewhere(tid); }

int join(KrThreadId tid, void** result, int cancelState) {
  {
    const ThreadsHeld held;
    const LiveThread* const thread = *find(tid);
    if (thread != nullptr && thread->detached) return EINVAL;
    if (!held.exist(tid)) {
      // It has ended, or is about to. A detached thread that the kernel still has may take memory with it, also that
      // behind other handles. One that waits for the list's lock instead is not waited for.
      for (int i = 0; i < 100 && anyLeaving(); ++i)
        (void)krThreadSuspend(1);
      ControlBlock block{};
      return copy(tid, &block) ? pthread_join(tid, result) : ESRCH;
    }
  }
  return cancellable(cancelState, [=] { return pthread_join(tid, result); });
}

int cancel(KrThreadId tid) {
  return uncancelled([tid] {
    const ThreadsHeld held;
    if (*find(tid) != nullptr) return cancelThread(tid);
    return existsElsewhere(tid) ? pthread_cancel(tid) : ESRCH;
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
