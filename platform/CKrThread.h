// A thread that is an object.
#ifndef TEV_PLATFORM_CKRTHREAD_H
#define TEV_PLATFORM_CKRTHREAD_H

#include "platform/kr.h"
#include "platform/krLog.h"

#include <atomic>

/// A subclass says in run() what its thread does. The object must outlive the thread: when run() uses anything of the
/// subclass, the subclass's destructor begins with kill(), as ~CKrThread() comes too late for that.
///
/// An object is started or not. It stays started when run() returns. Any thread may call anything, except that the
/// object is destroyed by one while no other uses it.
class CKrThread {
public:
  CKrThread();

  /// Ends the thread as kill() does.
  virtual ~CKrThread();

  CKrThread(const CKrThread&) = delete;
  CKrThread& operator=(const CKrThread&) = delete;

  /// The thread's work. It is cancelled asynchronously: see krThread.h.
  virtual void run() = 0;

  /// Starts the thread with krThreadSpawn. A started object warns on the logger "comps.kr" instead; one whose thread
  /// could not be made may be started again. A caller that is cancelled while the console takes nothing has started the
  /// thread.
  void start(const char* name, int priority, int stackSize);

  /// Cancels the thread if it has not ended and, unless it is the calling one, waits until it has. The object can then
  /// be started again or destroyed. The caller must hold nothing that the thread needs to reach a point where it can be
  /// cancelled. A cancellation point; destructors that call it may be left by a cancellation there.
  [[gnu::nothrow]] void kill();

  /// krThreadPause, krThreadResume, krThreadName, krThreadGetPriority and krThreadSetPriority for this thread. An
  /// object whose run() has returned has no thread to ask for or give a priority.
  int pause();
  int resume();
  const char* getName();
  int getPriority(int* priority);
  int setPriority(int priority);

private:
  static int entry(intptr_t object, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t,
                   intptr_t);

  /// Of the object's thread; waits while it is being made.
  KrThreadId threadId() const;

  KrLogger* _logger;
  std::atomic<KrThreadId> _tid{KR_NO_THREAD};
};

#endif
