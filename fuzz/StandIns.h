// The queues, pipes, nodes and board tools that the product finds: those of the program that is linked with
// tev_system_calls. Nothing of it reaches the machine, and no wait takes any time.
#ifndef TEV_FUZZ_STANDINS_H
#define TEV_FUZZ_STANDINS_H

#include "fuzz/Target.h"
#include "trial/SystemCalls.h"

#include <cstring>
#include <fcntl.h>
#include <unistd.h>

/// There is one at a time. Without one the calls are the system's own.
class StandIns : public SystemCalls {
public:
  static constexpr int queueId = 4711; ///< what msgget makes; the task id of the endpoint

  StandIns() { present = this; }
  ~StandIns() { present = _before; }
  StandIns(const StandIns&) = delete;
  StandIns& operator=(const StandIns&) = delete;

  /// The product sends: the text that follows the kernel's type of a queue form.
  virtual void sent(int, long, const std::string&) {}

  /// The product is about to wait for its pipe, or to read from it: the moment for bytes to arrive there.
  virtual void arrive() {}

  int msgget(key_t, int) override { return queueId; }
  int msgctl(int, int, msqid_ds*) override { return 0; }
  int msgsnd(int queue, const void* message, size_t size, int) override {
    long type = 0;
    memcpy(&type, message, sizeof type);
    errno = type > 0 ? 0 : EINVAL;
    if (type > 0) sent(queue, type, {static_cast<const char*>(message) + sizeof type, size});
    return type > 0 ? 0 : -1;
  }
  int mkfifo(const char*, mode_t) override {
    FUZZ_CHECK(pipe2(_pipe, O_NONBLOCK | O_CLOEXEC) == 0);
    return 0;
  }
  int unlink(const char*) override { return 0; }
  int open64(const char* path, int flags, mode_t mode) override {
    if (strncmp(path, "/tmp/", 5) != 0) return openNode(path);
    return SystemCalls::open64(("/proc/self/fd/" + std::to_string(_pipe[0])).c_str(), flags & ~O_NOFOLLOW, mode);
  }
  int system(const char*) override { return 0; }
  int poll(pollfd* waits, nfds_t count, int) override {
    arrive();
    return SystemCalls::poll(waits, count, 0);
  }
  ssize_t read(int fd, void* bytes, size_t size) override {
    arrive();
    return SystemCalls::read(fd, bytes, size);
  }

  /// The product opens a node. The descriptor, or -1 with errno.
  virtual int openNode(const char*) {
    errno = ENOENT;
    return -1;
  }

protected:
  /// Puts bytes into the pipe that the product's endpoint has made.
  static void intoPipe(const std::string& bytes) {
    FUZZ_CHECK(::write(_pipe[1], bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
  }

private:
  SystemCalls* const _before = present;
  inline static int _pipe[2] = {-1, -1}; // made last; stays open for the endpoint, which may outlive the stand-ins
};

#endif
