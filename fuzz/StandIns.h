// The queues, pipes and nodes that the product finds in a fuzz target. The calls do not reach the machine.
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
  virtual void sent(int queue, long type, const std::string& text) = 0;

  int msgget(key_t, int) override { return queueId; }
  int msgctl(int, int, msqid_ds*) override { return 0; }
  int msgsnd(int queue, const void* message, size_t size, int) override {
    long type = 0;
    memcpy(&type, message, sizeof type);
    errno = type > 0 ? 0 : EINVAL;
    if (type > 0) sent(queue, type, {static_cast<const char*>(message) + sizeof type, size});
    return type > 0 ? 0 : -1;
  }
  int mkfifo(const char*, mode_t) override { return pipe2(_pipe, O_NONBLOCK | O_CLOEXEC); }
  int unlink(const char*) override { return 0; }
  int open64(const char* path, int flags, mode_t mode) override {
    if (strncmp(path, "/tmp/", 5) != 0) return openNode(path);
    return SystemCalls::open64(("/proc/self/fd/" + std::to_string(_pipe[0])).c_str(), flags & ~O_NOFOLLOW, mode);
  }

protected:
  /// The product opens a node. The descriptor, or -1 with errno.
  virtual int openNode(const char*) {
    errno = ENOENT;
    return -1;
  }

  /// Puts bytes into the pipe that the product's endpoint has made.
  static void intoPipe(const std::string& bytes) {
    FUZZ_CHECK(::write(_pipe[1], bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
  }
  /// Empties that pipe.
  void emptyPipe() {
    char bytes[4096];
    while (SystemCalls::read(_pipe[0], bytes, sizeof bytes) > 0) {
    }
  }

private:
  SystemCalls* const _before = present;
  inline static int _pipe[2] = {-1, -1}; // made last; stays open for the endpoint, which may outlive the stand-ins
};

#endif
