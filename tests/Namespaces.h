// Namespaces of the test's own.
#ifndef TEV_TESTS_NAMESPACES_H
#define TEV_TESTS_NAMESPACES_H

#include "tests/Files.h"

#include <cerrno>
#include <cstring>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

/// Puts the process, which must have one thread, into namespaces of these kinds (CLONE_NEW...), as root there. Mounts
/// are only seen there. Returns the empty string, or what the machine refuses.
inline std::string enterNamespaces(int kinds) {
  const uid_t user = geteuid();
  const gid_t group = getegid();
  const auto mapToRoot = [=] {
    return write("/proc/self/setgroups", "deny") && write("/proc/self/uid_map", "0 " + std::to_string(user) + " 1") &&
           write("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
  };
  if (unshare(kinds | (user != 0 ? CLONE_NEWUSER : 0)) == 0 && (user == 0 || mapToRoot()) &&
      mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0)
    return "";
  return std::string("no namespaces: ") + std::strerror(errno);
}

#endif
