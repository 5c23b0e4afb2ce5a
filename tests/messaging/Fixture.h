// Real queues and pipes that nobody else sees.
#ifndef TEV_TESTS_MESSAGING_FIXTURE_H
#define TEV_TESTS_MESSAGING_FIXTURE_H

#include "tests/Files.h"

#include <gtest/gtest.h>
#include <string>

/// Puts the process into IPC and mount namespaces of its own, with an empty /tmp and the trace log on "/tmp/trace.log".
/// Cases are skipped, with the reason, where the machine refuses that.
class Messaging : public ::testing::Test {
protected:
  void SetUp() override;

  /// What the trace log has received since the last call.
  std::string trace() { return _trace.news(); }

private:
  Growing _trace{"/tmp/trace.log"};
};

/// Bytes as "00 6a ...".
std::string hex(const void* bytes, size_t size);

/// Takes the next message off a queue: its type as the kernel has it in hexadecimal, a colon and the text's bytes.
/// "empty" if there is none.
std::string takeFromQueue(int queueId);

/// All bytes that a pipe holds.
std::string takeFromPipe(int fd);

#endif
