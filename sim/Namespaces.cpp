#include "sim/Namespaces.h"

#include "platform/Descriptor.h"
#include "sim/SystemError.h"

#include <fcntl.h>
#include <sched.h>

namespace sim {

namespace {

constexpr int newNamespaces = CLONE_NEWIPC | CLONE_NEWPID;
constexpr char noUserNamespace[] = "the kernel refuses this user a user namespace (see user.max_user_namespaces, "
                                   "kernel.unprivileged_userns_clone, kernel.apparmor_restrict_unprivileged_userns)";

void writeFile(const char* path, std::string_view text) {
  const kr::Descriptor file(check(open(path, O_WRONLY | O_CLOEXEC), noUserNamespace));
  check(write(file.get(), text.data(), text.size()), noUserNamespace);
}

void mapSelfToRoot(uid_t user, gid_t group) {
  writeFile("/proc/self/setgroups", "deny"); // the kernel requires this before gid_map
  writeFile("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
  writeFile("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
}

} // namespace

void enterNamespaces() {
  const uid_t user = geteuid();
  const gid_t group = getegid();
  if (unshare(newNamespaces) == 0) return;
  if (errno != EPERM) throw systemError("the kernel refuses new namespaces");
  if (unshare(newNamespaces | CLONE_NEWUSER) != 0) throw systemError(noUserNamespace);
  mapSelfToRoot(user, group);
}

} // namespace sim
