// A file descriptor that closes itself.
#ifndef TEV_SIM_DESCRIPTOR_H
#define TEV_SIM_DESCRIPTOR_H

#include <unistd.h>
#include <utility>

namespace sim {

class Descriptor {
public:
  Descriptor() = default;
  /// Takes over `fd`; a negative number means no descriptor.
  explicit Descriptor(int fd) : _fd(fd) {}
  Descriptor(Descriptor&& other) noexcept : _fd(std::exchange(other._fd, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(_fd, other._fd);
    return *this;
  }
  ~Descriptor() {
    if (_fd >= 0) (void)close(_fd); // nothing is left to do about a failure
  }

  int get() const { return _fd; }
  /// Gives the descriptor away; the caller closes it.
  int release() { return std::exchange(_fd, -1); }
  explicit operator bool() const { return _fd >= 0; }

private:
  int _fd = -1;
};

} // namespace sim

#endif
