// A file descriptor that closes itself.
#ifndef TEV_PLATFORM_DESCRIPTOR_H
#define TEV_PLATFORM_DESCRIPTOR_H

#include <unistd.h>
#include <utility>

namespace kr {

class Descriptor {
public:
  /// Takes over `fd`; a negative number means no descriptor.
  explicit Descriptor(int fd) : _fd(fd) {}
  ~Descriptor() { (void)close(); } // who cares for the last bytes written calls close() before
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int get() const { return _fd; }
  explicit operator bool() const { return _fd >= 0; }
  int close() { return _fd >= 0 ? ::close(std::exchange(_fd, -1)) : 0; }

private:
  int _fd;
};

} // namespace kr

#endif
