#include "log/internal/LogFile.h"

#include <charconv>
#include <fcntl.h>
#include <iterator>
#include <sys/stat.h>
#include <type_traits>

namespace tev {

namespace {

constexpr int triesMax = 4; // while others create or remove the file at the same moment

bool canBeLog(const struct stat& file) {
  return S_ISREG(file.st_mode) && file.st_uid == geteuid() && file.st_nlink == 1;
}

/// Whether there is something under this name that cannot be a log.
bool isInTheWay(const char* path) {
  struct stat found {};
  return lstat(path, &found) == 0 && !canBeLog(found);
}

/// Locks an open file, makes sure that it is a log's, and empties it. 0, EAGAIN if the file has lost its name
/// meanwhile, or a failure().
int claim(int fd) {
  struct stat found {};
  if (fstat(fd, &found) != 0) return errno;
  if (!S_ISREG(found.st_mode)) return EEXIST;
  // The lock of a writer needs a file opened for writing, so only the owner of a log (or root) can hold it. Others can
  // hold that of a reader. A file system without locks does without.
  struct flock lock {};
  lock.l_type = F_WRLCK;
  if (fcntl(fd, F_SETLK, &lock) != 0 && (errno == EAGAIN || errno == EACCES)) {
    if (fcntl(fd, F_GETLK, &lock) != 0) return errno;
    if (lock.l_type == F_UNLCK) return EAGAIN; // released meanwhile
    return lock.l_type == F_WRLCK ? EBUSY : EEXIST;
  }
  if (fstat(fd, &found) != 0) return errno;
  if (found.st_nlink == 0) return EAGAIN;
  if (!canBeLog(found)) return EEXIST;
  return ftruncate(fd, 0) == 0 ? 0 : errno;
}

/// Returns the descriptor, or -1 with a failure() in errno.
int openLog(const char* path) {
  constexpr int flags = O_WRONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
  int failure = EEXIST;
  for (int tries = 0; tries < triesMax; ++tries) {
    // In two steps: the kernel may refuse to open an existing file of another user with O_CREAT.
    int fd = open(path, flags);
    if (fd < 0 && errno == ENOENT) fd = open(path, flags | O_CREAT | O_EXCL, 0666);
    failure = fd >= 0 ? claim(fd) : errno;
    if (failure == 0) return fd;
    if (fd >= 0) (void)close(fd); // nothing was written to it
    if (failure != EAGAIN && (fd >= 0 || failure != EEXIST)) break;
  }
  errno = failure != EBUSY && isInTheWay(path) ? EEXIST : failure;
  return -1;
}

} // namespace

LogFile::LogFile(const char* path) : _fd(openLog(path)) {
  if (_fd < 0) _failure = errno;
}

LogFile::~LogFile() {
  flush();
  if (_fd >= 0) (void)close(_fd); // the log has no use for its error
}

template <class Integer>
void LogFile::put(Integer number) {
  using Unsigned = std::make_unsigned_t<Integer>;
  char digits[24]; // the sign and 20 digits of the widest
  const std::to_chars_result result =
      _base == 10 ? std::to_chars(digits, std::end(digits), number)
                  : std::to_chars(digits, std::end(digits), static_cast<Unsigned>(number), _base);
  put(digits, static_cast<size_t>(result.ptr - digits));
}

template void LogFile::put(int);
template void LogFile::put(long);
template void LogFile::put(unsigned int);
template void LogFile::put(unsigned long);

} // namespace tev
