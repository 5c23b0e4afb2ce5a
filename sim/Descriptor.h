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
  explicit Descriptor(int fd) : mFd(fd) {}
  Descriptor(Descriptor&& other) noexcept : mFd(std::exchange(other.mFd, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(mFd, other.mFd);
    return *this;
  }
  ~Descriptor() {
    if (mFd >= 0) (void)close(mFd); // nothing is left to do about a failure
  }

  int get() const { return mFd; }
  /// Gives the descriptor away; the caller closes it.
  int release() { return std::exchange(mFd, -1); }
  explicit operator bool() const { return mFd >= 0; }

private:
  int mFd = -1;
};

} // namespace sim

#endif
