#include "fuzz/StandIns.h"

#include "fuzz/Check.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

StandIns* present = nullptr;
int pipeEnds[2] = {-1, -1}; // of the pipe made last; stays open for the endpoint, which may outlive the stand-ins

} // namespace

StandIns::StandIns() {
  FUZZ_CHECK(present == nullptr);
  present = this;
}

StandIns::~StandIns() { present = nullptr; }

int StandIns::sent(int, long, const std::string&) { return 0; }

ssize_t StandIns::haveRead(int, const void*, size_t, ssize_t count) { return count; }

int StandIns::openNode(const char*, int) {
  errno = ENOENT;
  return -1;
}

int StandIns::run(const char*) { return 0; }

void StandIns::intoPipe(const void* bytes, size_t size) {
  FUZZ_CHECK(write(pipeEnds[1], bytes, size) == static_cast<ssize_t>(size));
}

// The linker sends the product's calls to __wrap_ and the calls of __real_ to the system.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {

int __real_msgget(key_t key, int flags);
int __real_msgctl(int queue, int command, struct msqid_ds* about);
int __real_msgsnd(int queue, const void* message, size_t size, int flags);
int __real_mkfifo(const char* path, mode_t mode);
int __real_unlink(const char* path);
int __real_open64(const char* path, int flags, ...);
int __real_system(const char* commandLine);
int __real_poll(pollfd* waits, nfds_t count, int timeout);
ssize_t __real_read(int fd, void* buffer, size_t size);

int __wrap_msgget(key_t key, int flags) { return present != nullptr ? StandIns::queueId : __real_msgget(key, flags); }

int __wrap_msgctl(int queue, int command, struct msqid_ds* about) {
  return present != nullptr ? 0 : __real_msgctl(queue, command, about);
}

int __wrap_msgsnd(int queue, const void* message, size_t size, int flags) {
  if (present == nullptr) return __real_msgsnd(queue, message, size, flags);
  long type = 0;
  memcpy(&type, message, sizeof type);
  errno = type > 0 ? present->sent(queue, type, {static_cast<const char*>(message) + sizeof type, size}) : EINVAL;
  return errno == 0 ? 0 : -1;
}

int __wrap_mkfifo(const char* path, mode_t mode) {
  if (present == nullptr) return __real_mkfifo(path, mode);
  FUZZ_CHECK(pipe2(pipeEnds, O_NONBLOCK | O_CLOEXEC) == 0);
  return 0;
}

int __wrap_unlink(const char* path) { return present != nullptr ? 0 : __real_unlink(path); }

int __wrap_open64(const char* path, int flags, ...) {
  if (present != nullptr) {
    if (strncmp(path, "/tmp/", 5) != 0) return present->openNode(path, flags);
    return __real_open64(("/proc/self/fd/" + std::to_string(pipeEnds[0])).c_str(), flags);
  }
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return __real_open64(path, flags, mode);
}

int __wrap_system(const char* commandLine) {
  return present != nullptr ? present->run(commandLine) : __real_system(commandLine);
}

int __wrap_poll(pollfd* waits, nfds_t count, int timeout) {
  if (present == nullptr) return __real_poll(waits, count, timeout);
  present->arrive();
  return __real_poll(waits, count, 0);
}

ssize_t __wrap_read(int fd, void* buffer, size_t size) {
  if (present == nullptr) return __real_read(fd, buffer, size);
  present->arrive();
  return present->haveRead(fd, buffer, size, __real_read(fd, buffer, size));
}

} // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
