// Locks that report long waits: mutex, read-write lock, semaphore, polling condition.
#ifndef TEV_PLATFORM_KRLOCK_H
#define TEV_PLATFORM_KRLOCK_H

constexpr int KR_WAIT_FOREVER = -1; ///< milliseconds: wait without limit
constexpr int KR_NO_WAIT = 0;       ///< milliseconds: only try

constexpr int KR_ERR_PRIORITY = 202;  ///< priority out of range
constexpr int KR_ERR_TIMEOUT = 203;   ///< a timed wait ran out
constexpr int KR_ERR_NO_MEMORY = 204; ///< no block for the object, or no free slot in it
constexpr int KR_ERR_INVALID = 205;   ///< null handle, or the object is busy or being deleted

struct KrMutex;
struct KrReadWrite;
struct KrSem;
struct KrCond;

KrMutex* krMutexCreate();
int krMutexLockDebug(KrMutex* mutex, int timeoutMs, const char* file, int line, const char* function,
                     const char* description);
int krMutexUnlock(KrMutex* mutex);
void krMutexDestroy(KrMutex* mutex);

KrReadWrite* krReadWriteCreate();
int krReadLockDebug(KrReadWrite* lock, const char* file, int line, const char* function);
int krWriteLockDebug(KrReadWrite* lock, const char* file, int line, const char* function);
int krReadUnlock(KrReadWrite* lock);
int krWriteUnlock(KrReadWrite* lock);
void krReadWriteDestroy(KrReadWrite* lock);

KrSem* krSemCreate(unsigned int initial);
KrSem* krSemBinaryCreate(unsigned int initial);
int krSemTake(KrSem* sem, int timeoutMs);
int krSemGive(KrSem* sem);
void krSemFlush(KrSem* sem);
int krSemGetValue(KrSem* sem);
void krSemDestroy(KrSem* sem);

KrCond* krCondCreate();
int krCondWait(KrCond* cond, KrMutex* mutex);
int krCondTimedWait(KrCond* cond, KrMutex* mutex, int timeoutMs);
int krCondSignal(KrCond* cond);
void krCondDestroy(KrCond* cond);

#endif
