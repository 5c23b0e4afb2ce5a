// Real-time threads.
//
// A thread runs an entry function with ten word-sized arguments under the FIFO policy, and is cancelled asynchronously:
// krThreadDelete ends it between any two instructions, without releasing the locks and blocks it holds. What such a
// thread may do is told in Uncancelled.h; all calls of this library keep to it. Every start is told on standard error
// and in /var/log/threads.log, where that can be written.
//
// A thread that is cancelled in a system call, where it waits for instance, runs the handlers that it has pushed with
// pthread_cleanup_push. One that is cancelled elsewhere runs them as far as the unwinder knows its way from there; on
// 32-bit ARM, which has no tables for that, it runs none. The library cancels its threads with SIGURG. A thread that
// blocks this signal is cancelled all the same, but on 32-bit ARM it ends the process if that happens while a function
// sets up or leaves its frame.
//
// Library priorities go from 0, the most urgent, to 255; -1 leaves a priority as it is. Setting one needs root; a
// thread that does not get its priority runs with the one it inherited. Any thread may call anything.
//
// The calls take the ids of this library's threads and of any others of the process. What names no thread that exists
// is refused with ESRCH: KR_NO_THREAD, 0, and the id of a thread that has ended, until the system gives it to a new
// one. A thread made by other means must not end while a call about it is under way.
#ifndef TEV_PLATFORM_KRTHREAD_H
#define TEV_PLATFORM_KRTHREAD_H

#include "platform/krThreadId.h"

#include <cstddef>
#include <cstdint>

constexpr int KR_LOWEST_PRIORITY = 255;
constexpr int KR_KEEP_PRIORITY = -1;

/// What a thread runs: ten word-sized arguments, a result that is dropped.
using KrThreadEntry = int (*)(intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t,
                              intptr_t);

/// Starts a detached thread. The stack size in bytes (0 for that of the environment variable KR_DEFAULT_STACKSIZE,
/// 65536 without it) only shows on standard output: the thread gets the system's default stack. The name shows in the
/// lines about the start and is not kept. Returns the thread's id, or KR_NO_THREAD with errno telling why it could not
/// be made. A caller that is cancelled while the console takes nothing has started the thread, perhaps without its
/// priority.
KrThreadId krThreadSpawn(const char* name, int priority, int stackSize, KrThreadEntry entry, intptr_t a1, intptr_t a2,
                         intptr_t a3, intptr_t a4, intptr_t a5, intptr_t a6, intptr_t a7, intptr_t a8, intptr_t a9,
                         intptr_t a10);

/// The same with the caller's attributes, which stay the caller's; null for the system's defaults (joinable).
KrThreadId krThreadSpawn_with_attr(const char* name, int priority, const pthread_attr_t* attributes,
                                   KrThreadEntry entry, intptr_t a1, intptr_t a2, intptr_t a3, intptr_t a4, intptr_t a5,
                                   intptr_t a6, intptr_t a7, intptr_t a8, intptr_t a9, intptr_t a10);

/// The same with a joinable thread that does get the stack size, unless the system finds it too small for a stack, and
/// must be joined with krThreadJoin.
KrThreadId krThreadSpawn_joinable(const char* name, int priority, int stackSize, KrThreadEntry entry, intptr_t a1,
                                  intptr_t a2, intptr_t a3, intptr_t a4, intptr_t a5, intptr_t a6, intptr_t a7,
                                  intptr_t a8, intptr_t a9, intptr_t a10);

/// Puts a thread under the FIFO policy with a library priority. Returns 0, or -1: errno KR_ERR_PRIORITY for a number
/// out of range; EPERM, or the scheduler's reason, after a line on standard error.
int krThreadSetPriority(KrThreadId tid, int priority);

/// Reads a thread's library priority. The scale has more steps than the system's, so that 50 reads back as 49. Returns
/// 0, or -1 with `*priority` untouched.
int krThreadGetPriority(KrThreadId tid, int* priority);

/// Cancels a thread and returns at once: 0 or an error number.
int krThreadDelete(KrThreadId tid);

/// Waits for a joinable thread to end. Returns 0 or an error number: ESRCH or EINVAL for a thread that is detached or
/// has been joined. A cancellation point.
int krThreadJoin(KrThreadId tid, void** result);

/// Waits until a thread of this library has ended, returned or cancelled, so that it runs nothing of its entry any
/// more. Returns 0, at once for a thread that has ended or is none of this library's; -1 with errno EDEADLK on the
/// thread itself. A cancellation point.
int krThreadAwaitEnd(KrThreadId tid);

/// Not available: -1 with errno ENOSYS.
int krThreadResume(KrThreadId tid);

/// Not known: 0x7FFFFFFF.
int krThreadStackAvailable(KrThreadId tid);

/// The start routine of every thread; takes over the start block. Does not return: it ends the thread.
void* linuxEntry(void* startBlock);

#endif
