#include "tests/messaging/Fixture.h"

#include "log/tevlog.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sched.h>
#include <sys/ipc.h>
#include <sys/mount.h>
#include <sys/msg.h>
#include <unistd.h>

namespace {

bool writeTo(const char* path, const std::string& text) { return !(std::ofstream(path) << text << std::flush).fail(); }

bool mapIdsToRoot(uid_t user, gid_t group) {
  return writeTo("/proc/self/setgroups", "deny") && writeTo("/proc/self/uid_map", "0 " + std::to_string(user) + " 1") &&
         writeTo("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
}

// Empty, or what the machine refuses.
std::string enterNamespaces() {
  const uid_t user = geteuid();
  const gid_t group = getegid();
  const int kinds = CLONE_NEWIPC | CLONE_NEWNS | (user != 0 ? CLONE_NEWUSER : 0);
  if (unshare(kinds) != 0 || (user != 0 && !mapIdsToRoot(user, group)) ||
      mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("tmp", "/tmp", "tmpfs", MS_NOSUID, nullptr) != 0)
    return std::string("no namespaces: ") + std::strerror(errno);
  (void)msgget(IPC_PRIVATE, 0600); // uses up the queue id 0, which stands for no task
  return "";
}

} // namespace

void Messaging::SetUp() {
  static const std::string obstacle = enterNamespaces();
  if (!obstacle.empty()) GTEST_SKIP() << obstacle;
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
