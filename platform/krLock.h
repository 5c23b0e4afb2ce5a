// Locks that report long waits: mutex, read-write lock, semaphore, polling condition.
#ifndef TEV_PLATFORM_KRLOCK_H
#define TEV_PLATFORM_KRLOCK_H

#include "platform/krError.h"

constexpr int KR_WAIT_FOREVER = -1; ///< milliseconds: wait without limit
constexpr int KR_NO_WAIT = 0;       ///< milliseconds: only try

// An object is the creator's until its destroy call, which sends away those who wait for it (they return -1 with
// KR_ERR_INVALID) and returns after the last of them has left; nobody may come later, and whoever unlocks or gives must
// have returned. A null handle gives -1 with KR_ERR_INVALID. Any thread may call anything. Waiting is a cancellation
// point: a thread cancelled there takes nothing and leaves nothing behind. A thread cancelled while it holds a lock
// keeps it for ever.
//
// Timeouts are in milliseconds on the wall clock; a negative one other than KR_WAIT_FOREVER is over at once.

struct KrMutex;
struct KrReadWrite;
struct KrSem;
struct KrCond;

/// A recursive mutex, free. Null with errno KR_ERR_NO_MEMORY.
KrMutex* krMutexCreate();

/// Locks a mutex: the holder may lock it again and must unlock it as often. Returns 0, or -1 with nothing taken:
/// KR_NO_WAIT leaves EBUSY in errno when another thread holds it, a timeout KR_ERR_TIMEOUT.
///
/// The caller names its place in the source and, freely, what it does; the texts must live as long as the call. With
/// KR_WAIT_FOREVER an excessive-wait report with that place, the holder and a stack trace goes to the console and to
/// /var/log/mutexExcessiveWaitTid<thread>.log every 20 seconds until the lock is obtained.
int krMutexLockDebug(KrMutex* mutex, int timeoutMs, const char* file, int line, const char* function,
                     const char* description);

/// Takes back one lock. Returns 0, or -1 with errno EPERM when another thread (or none) was the last to obtain it. The
/// last owner may unlock a free mutex: nothing happens, and 0 is returned.
int krMutexUnlock(KrMutex* mutex);

/// Destroys a mutex that no other thread holds. Null does nothing.
void krMutexDestroy(KrMutex* mutex);

/// A read-write lock, free. Writers go before new readers. Up to 20 threads can read at a time. Waiting looks every
/// millisecond. Null with errno KR_ERR_NO_MEMORY.
KrReadWrite* krReadWriteCreate();

/// Locks for reading, without limit of time. A thread that reads already gets the lock at once, also while a writer
/// waits. Returns 0, or -1 at once with errno KR_ERR_NO_MEMORY when 20 other threads read and KR_ERR_INVALID when the
/// caller is the writer. While it waits it reports to /var/log/readLockExcessiveWait<lock>.log about every second.
int krReadLockDebug(KrReadWrite* lock, const char* file, int line, const char* function);

/// Locks for writing, without limit of time: waits until nobody else reads or writes. The writer may lock again; a
/// thread that is the only reader gets the lock as well. Two readers that both ask for it wait for each other for ever.
/// Returns 0. While it waits it reports to /var/log/writeLockExcessiveWait<lock>.log about every second.
int krWriteLockDebug(KrReadWrite* lock, const char* file, int line, const char* function);

/// Take back one lock. Return 0, or -1 with errno EPERM when the caller has none of that kind.
int krReadUnlock(KrReadWrite* lock);
int krWriteUnlock(KrReadWrite* lock);

/// Destroys a lock that nobody holds. Null does nothing.
void krReadWriteDestroy(KrReadWrite* lock);

/// A counting semaphore. Null with errno KR_ERR_NO_MEMORY, or EINVAL for a count beyond the system's largest.
KrSem* krSemCreate(unsigned int initial);

/// The same: the count is not limited to 1.
KrSem* krSemBinaryCreate(unsigned int initial);

/// Takes one. Returns 0, or -1 with nothing taken: EAGAIN in errno when there is none and KR_NO_WAIT was asked,
/// KR_ERR_TIMEOUT when the time ran out.
int krSemTake(KrSem* sem, int timeoutMs);

/// Gives one. Returns 0, or -1 with errno EOVERFLOW.
int krSemGive(KrSem* sem);

/// Lets every waiter try again; those who still find none go on waiting. Null does nothing.
void krSemFlush(KrSem* sem);

/// The count of now, or -1.
int krSemGetValue(KrSem* sem);

/// Destroys a semaphore. Null does nothing.
void krSemDestroy(KrSem* sem);

/// A polling condition: a wait gives the mutex up for a millisecond, whether or not anybody signals, so callers test
/// what they wait for in a loop. Up to 20 waiters are recorded. Null with errno KR_ERR_NO_MEMORY; errno 0 otherwise.
KrCond* krCondCreate();

/// Unlocks the caller's mutex (one level of it), sleeps a millisecond and locks it again without limit. Returns 0, or
/// -1 without sleeping: errno KR_ERR_INVALID for a destroyed condition, EPERM for a mutex that is not the caller's.
int krCondWait(KrCond* cond, KrMutex* mutex);

/// Not available: -1 with errno ENOSYS.
int krCondTimedWait(KrCond* cond, KrMutex* mutex, int timeoutMs);

/// Forgets the recorded waiters; they go on by themselves. Returns 0.
int krCondSignal(KrCond* cond);

/// Destroys a condition nobody is about to wait on. Null leaves errno KR_ERR_INVALID; errno 0 otherwise.
void krCondDestroy(KrCond* cond);

#endif
