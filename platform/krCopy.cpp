#include "platform/krFile.h"

#include "platform/Descriptor.h"
#include "platform/internal/Directory.h"
#include "platform/internal/Failure.h"
#include "platform/internal/OpenWaiting.h"
#include "platform/internal/Uncancelled.h"
#include "platform/krError.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool writeAll(int fd, const char* bytes, size_t length, int cancelState) {
  while (length > 0) {
    const ssize_t count = kr::cancellable(cancelState, [=] { return write(fd, bytes, length); });
    if (count == 0) errno = EIO; // a device may take nothing
    if (count <= 0) return false;
    bytes += count;
    length -= static_cast<size_t>(count);
  }
  return true;
}

bool copyContents(int from, int to, int cancelState) {
  char piece[1024];
  ssize_t count = 0;
  while ((count = kr::cancellable(cancelState, [&] { return read(from, piece, sizeof piece); })) > 0)
    if (!writeAll(to, piece, static_cast<size_t>(count), cancelState)) return false;
  return count == 0;
}

/// Copies a file; both names are seen from an open directory (or AT_FDCWD). Waits in `cancelState`.
int copyFile(int fromDirectory, const char* from, int toDirectory, const char* to, int cancelState) {
  struct stat source {
  }, destination{};
  const kr::Descriptor in(kr::openWaiting(fromDirectory, from, O_RDONLY, cancelState));
  if (!in || fstat(in.get(), &source) != 0) return -1;
  if (S_ISDIR(source.st_mode)) return kr::failWith(EISDIR);
  kr::Descriptor out(kr::openWaiting(toDirectory, to, O_WRONLY | O_CREAT, cancelState));
  if (!out || fstat(out.get(), &destination) != 0) return -1;
  if (source.st_dev == destination.st_dev && source.st_ino == destination.st_ino) return kr::failWith(EINVAL);
  // Only now is the destination known to be another file. A device or a pipe has no length.
  if (S_ISREG(destination.st_mode) && ftruncate(out.get(), 0) != 0) return -1;
  return copyContents(in.get(), out.get(), cancelState) && out.close() == 0 ? 0 : -1;
}

} // namespace

int krFileCopy(const char* from, const char* to) {
  if (from == nullptr || to == nullptr) return kr::failWith(KR_ERR_INVALID);
  return kr::uncancelled([=](int cancelState) { return copyFile(AT_FDCWD, from, AT_FDCWD, to, cancelState); });
}

int krDirCopy(const char* from, const char* to) {
  if (from == nullptr || to == nullptr) return kr::failWith(KR_ERR_INVALID);
  return kr::uncancelled([=](int cancelState) {
    kr::Directory source(from);
    const kr::Descriptor destination(open(to, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!source || !destination) return -1;
    while (const dirent* const entry = source.next()) {
      struct stat found {};
      if (fstatat(source.descriptor(), entry->d_name, &found, 0) != 0) return -1;
      if (S_ISREG(found.st_mode) &&
          copyFile(source.descriptor(), entry->d_name, destination.get(), entry->d_name, cancelState) != 0)
        return -1;
    }
    return errno == 0 ? 0 : -1;
  });
}
