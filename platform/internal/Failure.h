// How the calls of this library fail.
#ifndef TEV_PLATFORM_FAILURE_H
#define TEV_PLATFORM_FAILURE_H

#include <cerrno>

namespace kr {

/// Sets errno and is the -1 to return.
inline int failWith(int error) {
  errno = error;
  return -1;
}

} // namespace kr

#endif
