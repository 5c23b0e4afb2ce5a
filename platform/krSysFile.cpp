#include "platform/krFile.h"

#include "platform/Descriptor.h"
#include "platform/internal/Diagnostic.h"
#include "platform/internal/Failure.h"
#include "platform/internal/OpenWaiting.h"
#include "platform/internal/Uncancelled.h"
#include "platform/krError.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

// On the target these two are the bits 0x11000, and with O_NOATIME 0x51000.
constexpr int pastCaches = O_DSYNC | O_DIRECT;

int openNode(const char* path, int flags, int cancelState) {
  for (;;) {
    const int fd = kr::openWaiting(AT_FDCWD, path, flags, cancelState);
    if (fd >= 0) return fd;
    // A file system without direct access says EINVAL; EPERM is for those who do not own the file.
    const int refused = errno == EINVAL ? flags & O_DIRECT : errno == EPERM ? flags & O_NOATIME : 0;
    if (refused == 0) return -1;
    flags &= ~refused;
  }
}

bool dropDirect(int fd) {
  const int flags = fcntl(fd, F_GETFL);
  return flags != -1 && (flags & O_DIRECT) != 0 && fcntl(fd, F_SETFL, flags & ~O_DIRECT) == 0;
}

/// Opens a node and does `transfer` on it, waiting in `cancelState`.
template <class Transfer>
ssize_t transferNode(const char* path, int flags, int cancelState, Transfer transfer) {
  const kr::Descriptor node(openNode(path, flags, cancelState));
  if (!node) return -1;
  const auto waiting = [&] { return kr::cancellable(cancelState, [&] { return transfer(node.get()); }); };
  const ssize_t count = waiting();
  // A disk takes direct transfers only of whole, aligned blocks.
  return count == -1 && errno == EINVAL && dropDirect(node.get()) ? waiting() : count;
}

/// What perror prints.
int complain(const char* text, int error, int cancelState) {
  char buffer[128];
  kr::say(cancelState, stderr, "%s: %s\n", text, strerror_r(error, buffer, sizeof buffer));
  return kr::failWith(error);
}

} // namespace

int krReadFromSysFile(const char* path, char* buffer, int length) {
  return kr::uncancelled([=](int cancelState) {
    errno = KR_ERR_INVALID;
    ssize_t count = -1;
    if (path != nullptr && buffer != nullptr && length >= 0)
      count = transferNode(path, O_RDONLY | pastCaches, cancelState,
                           [=](int fd) { return read(fd, buffer, static_cast<size_t>(length)); });
    if (count <= 0) return complain("Failed to read to sysfile\n", count == 0 ? ENODATA : errno, cancelState);
    return static_cast<int>(count);
  });
}

int krWriteToSysFile(const char* path, const char* text) {
  return kr::uncancelled([=](int cancelState) {
    errno = KR_ERR_INVALID;
    ssize_t count = -1;
    if (path != nullptr && text != nullptr)
      count = transferNode(path, O_WRONLY | pastCaches | O_NOATIME, cancelState,
                           [=](int fd) { return write(fd, text, strlen(text)); });
    if (count < 0) return complain("Failed to write to sysfile\n", errno, cancelState);
    return static_cast<int>(count);
  });
}
