// A file descriptor that closes itself.
#ifndef TEV_PLATFORM_DESCRIPTOR_H
#define TEV_PLATFORM_DESCRIPTOR_H

#include "platform/internal/Uncancelled.h"

#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace kr {

/// Owns one descriptor, or none. Not thread-safe.
class Descriptor {
public:
  Descriptor() = default;
  /// Takes over `fd`; a negative number means no descriptor.
  explicit Descriptor(int fd) : _fd(fd) {}
  /// Take over the other one's descriptor and leave it without; assignment first closes its own.
  Descriptor(Descriptor&& other) noexcept : _fd(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    if (this != &other) {
      (void)close(); // as in the destructor
      _fd = other.release();
    }
    return *this;
  }
  ~Descriptor() { (void)close(); } // who cares for the last bytes written calls close() before

  int get() const { return _fd; }
  explicit operator bool() const { return _fd >= 0; }
  /// Closes now. Returns 0, also without a descriptor; or -1 with the errno of close(2).
  int close() { return _fd >= 0 ? ::close(release()) : 0; }
  /// Gives the descriptor away; the caller closes it.
  [[nodiscard]] int release() { return std::exchange(_fd, -1); }

private:
  int _fd = -1;
};

/// openat(2) with cancellation disabled. Opens in `cancelState` what it may have to wait for: the other end of a pipe,
/// a device. Nothing else, because a cancellation that comes right behind the system's call loses the descriptor.
inline int openWaiting(int directory, const char* name, int flags, int cancelState) {
  constexpr mode_t mode = 0666;
  flags |= O_CLOEXEC;
  struct stat found {};
  if (fstatat(directory, name, &found, 0) != 0 || !(S_ISFIFO(found.st_mode) || S_ISCHR(found.st_mode)))
    return openat(directory, name, flags, mode);
  if (directory == AT_FDCWD) return cancellable(cancelState, [=] { return open(name, flags, mode); });
  // Unlike open, openat cannot be unwound on 32-bit ARM.
  char path[320];
  (void)snprintf(path, sizeof path, "/proc/self/fd/%d/%s", directory, name);
  return cancellable(cancelState, [&] { return open(path, flags, mode); });
}

} // namespace kr

#endif
