// Thread ids.
#ifndef TEV_PLATFORM_KRTHREADID_H
#define TEV_PLATFORM_KRTHREADID_H

#include <pthread.h>

/// The POSIX handle of a thread, as wide as the machine makes it. KR_NO_THREAD (-1) means no thread.
using KrThreadId = pthread_t;
constexpr KrThreadId KR_NO_THREAD = static_cast<KrThreadId>(-1);

/// The calling thread's id. From any thread.
KrThreadId krThreadIdSelf();

/// The empty string: names of threads are not kept. Never null; not to be released.
const char* krThreadName(KrThreadId tid);

#endif
