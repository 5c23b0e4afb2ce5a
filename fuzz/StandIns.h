// The system calls with which the product reaches queues, pipes, nodes and board tools. In a program linked with these
// stand-ins (tev_stand_ins in CMakeLists.txt) they end here, so that the program decides what the product finds there,
// and when. Nothing of it reaches the machine, and no wait takes any time.
#ifndef TEV_FUZZ_STANDINS_H
#define TEV_FUZZ_STANDINS_H

#include <cstddef>
#include <string>
#include <sys/types.h>

/// What the calls do while an object lives; there is one at a time. Without one they are the system's own.
class StandIns {
public:
  static constexpr int queueId = 4711; ///< what msgget makes; the task id of the endpoint

  StandIns();
  virtual ~StandIns();
  StandIns(const StandIns&) = delete;
  StandIns& operator=(const StandIns&) = delete;

  /// The product sends: the text that follows the kernel's type of a queue form. Returns 0 or an error number.
  virtual int sent(int queue, long type, const std::string& text);

  /// The product is about to wait for its pipe, or to read from it: the moment for bytes to arrive there.
  virtual void arrive() {}

  /// It has read from a descriptor. Returns the result to give it in place of `count`.
  virtual ssize_t haveRead(int fd, const void* bytes, size_t wanted, ssize_t count);

  /// It opens a node. The descriptor, or -1 with errno.
  virtual int openNode(const char* path, int flags);

  /// It runs a command line. The result of system().
  virtual int run(const char* commandLine);

protected:
  /// Puts bytes into the pipe that the product's endpoint has made.
  static void intoPipe(const void* bytes, size_t size);
};

#endif
