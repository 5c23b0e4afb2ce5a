#include "log/LogFile.h"

#include <charconv>
#include <fcntl.h>
#include <iterator>
#include <type_traits>

namespace tev {

LogFile::LogFile(const char* path) : _fd(open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)) {}

LogFile::~LogFile() {
  flush();
  if (_fd >= 0) (void)close(_fd); // what it could still tell comes too late
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
