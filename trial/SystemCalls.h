// The system calls of the product, as hooks. In a program that is linked with tev_system_calls, and in a process into
// which tev-inject is preloaded, they come to SystemCalls::present.
#ifndef TEV_TRIAL_SYSTEMCALLS_H
#define TEV_TRIAL_SYSTEMCALLS_H

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <poll.h>
#include <pthread.h>
#include <sys/types.h>

struct msqid_ds;

// CALL(result, name, parameters, arguments, kind, what it returns when it fails)
#define TEV_SYSTEM_CALLS(CALL)                                                                                         \
  CALL(void*, malloc, (size_t size), (size), allocation, nullptr)                                                      \
  CALL(void*, calloc, (size_t count, size_t size), (count, size), allocation, nullptr)                                 \
  CALL(void*, realloc, (void* block, size_t size), (block, size), allocation, nullptr)                                 \
  CALL(FILE*, fopen64, (const char* path, const char* mode), (path, mode), open, nullptr)                              \
  CALL(int, open64, (const char* path, int flags, mode_t mode), (path, flags, mode), open, -1)                         \
  CALL(int, msgget, (key_t key, int flags), (key, flags), msgget, -1)                                                  \
  CALL(int, msgctl, (int queue, int command, msqid_ds* about), (queue, command, about), other, -1)                     \
  CALL(int, mkfifo, (const char* path, mode_t mode), (path, mode), mkfifo, -1)                                         \
  CALL(int, unlink, (const char* path), (path), other, -1)                                                             \
  CALL(int, pthread_create,                                                                                            \
       (pthread_t * thread, const pthread_attr_t* attributes, void* (*routine)(void*), void* argument),                \
       (thread, attributes, routine, argument), pthread_create, EAGAIN)                                                \
  CALL(int, msgsnd, (int queue, const void* message, size_t size, int flags), (queue, message, size, flags), msgsnd,   \
       -1)                                                                                                             \
  CALL(ssize_t, msgrcv, (int queue, void* message, size_t size, long type, int flags),                                 \
       (queue, message, size, type, flags), msgrcv, -1)                                                                \
  CALL(int, poll, (pollfd * waits, nfds_t count, int timeout), (waits, count, timeout), poll, -1)                      \
  CALL(int, system, (const char* commandLine), (commandLine), system, -1)                                              \
  CALL(ssize_t, read, (int fd, void* bytes, size_t size), (fd, bytes, size), read, -1)                                 \
  CALL(ssize_t, write, (int fd, const void* bytes, size_t size), (fd, bytes, size), write, -1)

/// What the calls do, while it is present: as this class is, what the system does.
class SystemCalls {
public:
  static SystemCalls* present;

#define TEV_HOOK(result, name, parameters, arguments, kind, failed) virtual result name parameters;
  TEV_SYSTEM_CALLS(TEV_HOOK)
#undef TEV_HOOK
};

#endif
