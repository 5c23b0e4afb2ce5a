#include "tests/messaging/Fixture.h"

#include "log/tevlog.h"
#include "tests/Isolation.h"

#include <cstdio>
#include <cstring>
#include <sys/ipc.h>
#include <sys/msg.h>

void Messaging::SetUp() {
  if (!whyNotIsolated().empty()) GTEST_SKIP() << whyNotIsolated();
  (void)msgget(IPC_PRIVATE, 0600); // uses up the queue id 0, which stands for no task
  tev::initlog("/tmp/trace.log");
  tev::log << tev::enable;
}

std::string hex(const void* bytes, size_t size) {
  std::string text;
  for (size_t i = 0; i < size; ++i) {
    char two[4];
    std::snprintf(two, sizeof two, "%s%02x", i == 0 ? "" : " ", static_cast<const unsigned char*>(bytes)[i]);
    text += two;
  }
  return text;
}

std::string takeFromQueue(int queueId) {
  struct {
    long type;
    char text[600];
  } message;
  const ssize_t size = msgrcv(queueId, &message, sizeof message.text, 0, IPC_NOWAIT);
  if (size < 0) return errno == ENOMSG ? "empty" : std::strerror(errno);
  char type[32];
  std::snprintf(type, sizeof type, "%lx: ", message.type);
  return type + hex(message.text, static_cast<size_t>(size));
}

std::string takeFromPipe(int fd) {
  char bytes[4096];
  const ssize_t size = read(fd, bytes, sizeof bytes);
  return size < 0 ? "empty" : hex(bytes, static_cast<size_t>(size));
}
