#include "platform/krFile.h"

#include "platform/Descriptor.h"
#include "platform/internal/Failure.h"
#include "platform/internal/Uncancelled.h"
#include "platform/krError.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

struct LineRead {
  int stored; ///< bytes, or -1
  bool failed;
};

/// Waits in read() and owns nothing, so that it can be cancelled there.
LineRead readLine(int fd, char* buffer, int size) {
  int stored = 0;
  while (stored < size) {
    char* const byte = buffer + stored;
    const ssize_t count = read(fd, byte, 1);
    if (count <= 0 && stored == 0) return {-1, count < 0};
    ++stored;
    if (count <= 0 || *byte == '\n') *byte = '\0';
    if (*byte == '\0') return {stored, count < 0};
  }
  return {stored, false};
}

int notAvailable(const char* path) {
  if (path == nullptr) return kr::failWith(KR_ERR_INVALID);
  return kr::uncancelled([=] {
    // A pipe must not block, whoever is at its other end.
    const kr::Descriptor file(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    return file ? kr::failWith(ENOSYS) : -1;
  });
}

} // namespace

int fioRdString(int fd, char* buffer, int size) { return buffer != nullptr ? readLine(fd, buffer, size).stored : 0; }

int krFioRdString(int fd, char* buffer, int size) {
  if (buffer == nullptr) return 0;
  if (size <= 0) return kr::failWith(KR_ERR_INVALID);
  const LineRead line = readLine(fd, buffer, size);
  return line.failed ? -1 : line.stored;
}

int krFileStat(const char* path, KrFileInfo* info) {
  if (path == nullptr || info == nullptr) return kr::failWith(KR_ERR_INVALID);
  return kr::uncancelled([=] {
    struct stat found {};
    tm local{};
    if (stat(path, &found) != 0 || localtime_r(&found.st_mtime, &local) == nullptr) return -1;
    int attributes = S_ISREG(found.st_mode) ? KR_FILE_REGULAR : S_ISDIR(found.st_mode) ? KR_FILE_DIRECTORY : 0;
    if ((found.st_mode & S_IRUSR) != 0) attributes |= KR_FILE_READ;
    if ((found.st_mode & S_IWUSR) != 0) attributes |= KR_FILE_WRITE;
    if ((found.st_mode & S_IXUSR) != 0) attributes |= KR_FILE_EXECUTE;
    if (path[0] == '.') attributes |= KR_FILE_HIDDEN;
    info->attributes = static_cast<uint16_t>(attributes);
    info->size = static_cast<uint32_t>(std::min<off_t>(found.st_size, UINT32_MAX));
    info->month = static_cast<uint8_t>(local.tm_mon + 1);
    info->day = static_cast<uint8_t>(local.tm_mday);
    info->year = static_cast<uint16_t>(local.tm_year + 1900);
    info->hour = static_cast<uint8_t>(local.tm_hour);
    info->minute = static_cast<uint8_t>(local.tm_min);
    info->second = static_cast<uint8_t>(local.tm_sec);
    (void)strftime(info->time, sizeof info->time, "%H:%M:%S", &local);
    // A year of more than five digits, which only a damaged disk has, leaves no room.
    if (strftime(info->date, sizeof info->date, "%m/%d/%Y", &local) == 0) info->date[0] = '\0';
    return 0;
  });
}

int64_t krFileSize(const char* path) {
  if (path == nullptr) return kr::failWith(KR_ERR_INVALID);
  struct stat found {};
  return stat(path, &found) == 0 ? int64_t{found.st_size} : -1;
}

int64_t krFileSizeByFd(int fd) {
  struct stat found {};
  return fstat(fd, &found) == 0 ? int64_t{found.st_size} : -1;
}

int krFileTimeGet(const char* path, time_t* modified, time_t* zero) {
  if (path == nullptr) return kr::failWith(KR_ERR_INVALID);
  struct stat found {};
  if (stat(path, &found) != 0) return -1;
  if (modified != nullptr) *modified = found.st_mtime;
  if (zero != nullptr) *zero = 0;
  return 0;
}

int krFileDelete(const char* path) { return path != nullptr ? unlink(path) : kr::failWith(KR_ERR_INVALID); }

ssize_t krFileReadLink(const char* path, char* buffer, size_t size) {
  return path != nullptr && buffer != nullptr ? readlink(path, buffer, size) : kr::failWith(KR_ERR_INVALID);
}

int krFileSymLink(const char* target, const char* link) {
  return target != nullptr && link != nullptr ? symlink(target, link) : kr::failWith(KR_ERR_INVALID);
}

int krFileStatAttrib(const char* path) { return notAvailable(path); }

int krFileTimeSet(const char* path) { return notAvailable(path); }

int krFileFStatAttrib(int) { return kr::failWith(ENOSYS); }

int krFileFTimeSet(int) { return kr::failWith(ENOSYS); }

int krFdSetCloexecFlag(int fd, int on) {
  const int flags = fcntl(fd, F_GETFD);
  if (flags == -1) return -1;
  return fcntl(fd, F_SETFD, on != 0 ? flags | FD_CLOEXEC : flags & ~FD_CLOEXEC);
}
