// The threads of this library that have not ended.
//
// The handle of a detached thread is worth nothing once the thread has ended: the system may have given it to another
// one, or its memory back. A thread in this list has not ended, because it leaves the list as the last thing it does,
// by the destructor of thread-specific data, which runs for returned and cancelled threads alike.
//
// A handle that is not in the list may be that of a thread made by other means, or of none. What tells is the number of
// the kernel's thread, which the C library keeps behind the handle and the kernel clears at the end. It is read from a
// copy, which the kernel makes or refuses: the memory behind the handle may be gone at any moment.
#ifndef TEV_PLATFORM_LIVETHREADS_H
#define TEV_PLATFORM_LIVETHREADS_H

#include "platform/krThread.h"

#include <atomic>

namespace kr {

/// pthread_create for linuxEntry, with cancellation disabled. `owner` is what others ask for with the id. The new
/// thread is held. Returns 0 or an error number.
int createThread(KrThreadId* tid, const pthread_attr_t* attributes, void* startBlock, intptr_t owner);

/// krThreadSpawn with cancellation disabled: prints in `cancelState`. `*published`, if it is not null, gets the result
/// before anything is printed.
KrThreadId spawnDetached(const char* name, int priority, int stackSize, KrThreadEntry entry,
                         const intptr_t (&arguments)[10], std::atomic<KrThreadId>* published, int cancelState);

/// Holds a live thread: it does not end, and its id is good, until letGo(). False when no live thread has this id and
/// owner. For moments, with cancellation disabled.
bool hold(KrThreadId tid, intptr_t owner);
void letGo(KrThreadId tid);

/// On the new thread, once: arranges for its leaving. False when that is impossible; the thread has left the list then
/// and must end at once.
bool stayTillTheEnd();

/// Whether an id can be that of a thread.
inline bool isThread(KrThreadId tid) { return tid != KR_NO_THREAD && tid != 0; }

/// While it lives, no thread leaves the list. For moments, with cancellation disabled.
class ThreadsHeld {
public:
  ThreadsHeld();
  ~ThreadsHeld();
  ThreadsHeld(const ThreadsHeld&) = delete;
  ThreadsHeld& operator=(const ThreadsHeld&) = delete;

  /// Whether an id is that of a thread that has not ended: one in the list, or another one of the process. The latter
  /// may end at any moment.
  bool exist(KrThreadId tid) const;
};

/// pthread_join with cancellation disabled, for any thread; waits in `cancelState`.
int join(KrThreadId tid, void** result, int cancelState);

/// pthread_cancel, for any thread; ESRCH for none.
int cancel(KrThreadId tid);

/// Cancels a thread and waits until it has ended, unless it is the calling one. Does nothing when no live thread has
/// this id and owner.
void endThread(KrThreadId tid, intptr_t owner);

} // namespace kr

#endif
