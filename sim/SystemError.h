// Failures of system calls as exceptions.
#ifndef TEV_SIM_SYSTEMERROR_H
#define TEV_SIM_SYSTEMERROR_H

#include <cerrno>
#include <string>
#include <string_view>
#include <system_error>

namespace sim {

/// Returns an exception with `what` and the reason in errno.
inline std::system_error systemError(std::string_view what) {
  return std::system_error(errno, std::generic_category(), std::string(what));
}

/// Returns `result` of a system call; throws systemError(what) if it is negative.
template <class Result>
Result check(Result result, std::string_view what) {
  if (result < 0) throw systemError(what);
  return result;
}

} // namespace sim

#endif
