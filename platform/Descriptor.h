// A file descriptor that closes itself.
#ifndef TEV_PLATFORM_DESCRIPTOR_H
#define TEV_PLATFORM_DESCRIPTOR_H

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

} // namespace kr

#endif
