// Preloaded into the shell: lets calls of one kind fail as the system lets them fail, and counts all. What the shell
// starts is left alone. Sleeping takes no time.
#include "trial/Injection.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

Injection* injection = nullptr;

/// The system's own function of a name. For functions that dlsym() does without.
template <class Function>
Function* systems(Function*& function, const char* name) {
  if (function == nullptr) function = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
  return function;
}

/// Counts a call; true, with errno, for one that is to fail.
bool fails(CallKind kind, int error) {
  if (injection == nullptr) return false;
  const uint32_t number = ++injection->calls[static_cast<uint32_t>(kind)];
  if (injection->kind != kind || number < injection->first || number > injection->last) return false;
  ++injection->failed;
  errno = error;
  return true;
}

__attribute__((constructor)) void start() {
  const char* const path = getenv("TEV_INJECTION");
  const int fd = path != nullptr ? open(path, O_RDWR | O_CLOEXEC) : -1;
  void* const page = fd >= 0 ? mmap(nullptr, sizeof(Injection), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0) : MAP_FAILED;
  if (page == MAP_FAILED) {
    perror("TEV_INJECTION");
    _exit(126);
  }
  (void)close(fd);
  (void)unsetenv("LD_PRELOAD"); // cannot fail for such a name
  injection = static_cast<Injection*>(page);
}

} // namespace

#define TEV_INJECTED(result, name, parameters, kind, error, failure, arguments)                                        \
  result name parameters {                                                                                             \
    static result(*function) parameters = nullptr;                                                                     \
    if (fails(CallKind::kind, error)) return failure;                                                                  \
    return systems(function, #name) arguments;                                                                         \
  }

// NOLINTBEGIN(bugprone-reserved-identifier): the C library's names
extern "C" {

void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);

// operator new and the C library's own allocations come here as well.
void* malloc(size_t size) { return fails(CallKind::allocation, ENOMEM) ? nullptr : __libc_malloc(size); }
void* calloc(size_t count, size_t size) {
  return fails(CallKind::allocation, ENOMEM) ? nullptr : __libc_calloc(count, size);
}
void* realloc(void* block, size_t size) {
  return fails(CallKind::allocation, ENOMEM) ? nullptr : __libc_realloc(block, size);
}

TEV_INJECTED(FILE*, fopen, (const char* path, const char* mode), open, EMFILE, nullptr, (path, mode))
TEV_INJECTED(FILE*, fopen64, (const char* path, const char* mode), open, EMFILE, nullptr, (path, mode))
TEV_INJECTED(int, msgget, (key_t key, int flags), msgget, ENOSPC, -1, (key, flags))
TEV_INJECTED(int, mkfifo, (const char* path, mode_t mode), mkfifo, EROFS, -1, (path, mode))
TEV_INJECTED(int, pthread_create,
             (pthread_t * thread, const pthread_attr_t* attributes, void* (*routine)(void*), void* argument),
             pthread_create, EAGAIN, EAGAIN, (thread, attributes, routine, argument))
TEV_INJECTED(int, msgsnd, (int queue, const void* message, size_t size, int flags), msgsnd, EIDRM, -1,
             (queue, message, size, flags))
TEV_INJECTED(ssize_t, msgrcv, (int queue, void* message, size_t size, long type, int flags), msgrcv, EACCES, -1,
             (queue, message, size, type, flags))
TEV_INJECTED(int, poll, (pollfd * waits, nfds_t count, int timeout), poll, ENOMEM, -1, (waits, count, timeout))
// What a fortified program calls.
TEV_INJECTED(int, __poll_chk, (pollfd * waits, nfds_t count, int timeout, size_t room), poll, ENOMEM, -1,
             (waits, count, timeout, room))
TEV_INJECTED(int, system, (const char* commandLine), system, EAGAIN, -1, (commandLine))
TEV_INJECTED(ssize_t, read, (int fd, void* bytes, size_t size), read, EIO, -1, (fd, bytes, size))
// What a fortified program calls.
TEV_INJECTED(ssize_t, __read_chk, (int fd, void* bytes, size_t size, size_t room), read, EIO, -1,
             (fd, bytes, size, room))
TEV_INJECTED(ssize_t, write, (int fd, const void* bytes, size_t size), write, ENOSPC, -1, (fd, bytes, size))

#define TEV_OPEN(name)                                                                                                 \
  int name(const char* path, int flags, ...) {                                                                         \
    static int (*function)(const char*, int, ...) = nullptr;                                                           \
    va_list rest;                                                                                                      \
    va_start(rest, flags);                                                                                             \
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;                                             \
    va_end(rest);                                                                                                      \
    if (fails(CallKind::open, EMFILE)) return -1;                                                                      \
    return systems(function, #name)(path, flags, mode);                                                                \
  }
TEV_OPEN(open)
TEV_OPEN(open64)
// What a fortified program calls.
TEV_INJECTED(int, __open_2, (const char* path, int flags), open, EMFILE, -1, (path, flags))
TEV_INJECTED(int, __open64_2, (const char* path, int flags), open, EMFILE, -1, (path, flags))

int select(int count, fd_set* in, fd_set* out, fd_set* bad, struct timeval* timeout) {
  static int (*function)(int, fd_set*, fd_set*, fd_set*, struct timeval*) = nullptr;
  if (count == 0) *timeout = {}; // a pause
  return systems(function, "select")(count, in, out, bad, timeout);
}

unsigned int sleep(unsigned int) { return 0; }

} // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
