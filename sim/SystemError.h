// What cannot be done on this machine.
#ifndef TEV_SIM_SYSTEMERROR_H
#define TEV_SIM_SYSTEMERROR_H

#include <cerrno>
#include <string>
#include <string_view>
#include <system_error>

namespace sim {

/// An exception that says `what` and the reason in errno. Thrown while the board is set up, caught in main.
inline std::system_error systemError(std::string_view what) {
  return std::system_error(errno, std::generic_category(), std::string(what));
}

/// `result` of a system call, unless it is negative: then the systemError() of `what`.
template <class Result>
Result check(Result result, std::string_view what) {
  if (result < 0) throw systemError(what);
  return result;
}

} // namespace sim

#endif
