#include "tests/Isolation.h"

#include "tests/Files.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

int obstacle = 0; // errno

bool becomeRoot(uid_t user, gid_t group) {
  return write("/proc/self/setgroups", "deny") && write("/proc/self/uid_map", "0 " + std::to_string(user) + " 1") &&
         write("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
}

// Covers /tmp. If the project lies there, its folder stays visible.
bool coverTmp() {
  const std::string tree = TEV_SOURCE_PATH;
  const bool inside = tree.rfind("/tmp/", 0) == 0;
  const std::string folder = tree.substr(0, tree.find('/', std::strlen("/tmp/")));
  const int fd = inside ? open(folder.c_str(), O_PATH | O_CLOEXEC) : -1;
  if (mount("tests", "/tmp", "tmpfs", MS_NOSUID, "mode=1777") != 0) return false;
  if (!inside) return true;
  const std::string source = "/proc/self/fd/" + std::to_string(fd);
  const bool bound = mkdir(folder.c_str(), 0755) == 0 &&
                     mount(source.c_str(), folder.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0;
  (void)close(fd);
  return bound;
}

[[gnu::constructor(101)]] void isolate() {
  const uid_t user = geteuid();
  const gid_t group = getegid();
  if (unshare(CLONE_NEWNS | CLONE_NEWIPC | (user != 0 ? CLONE_NEWUSER : 0)) != 0 ||
      (user != 0 && !becomeRoot(user, group)) || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      !coverTmp() || mount("tests", "/var/log", "tmpfs", MS_NOSUID, nullptr) != 0)
    obstacle = errno;
}

} // namespace

std::string whyNotIsolated() { return obstacle == 0 ? "" : std::string("no namespaces: ") + std::strerror(obstacle); }
