#include "platform/krPrint.h"

#include "platform/internal/Diagnostic.h"
#include "platform/internal/Uncancelled.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <unistd.h>

int krPrintf(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int count = kr::uncancelled([&](int state) { return kr::print(state, stdout, format, arguments); });
  va_end(arguments);
  return count;
}

KR_UNWOUND_BY_CANCELLATION int krFdPrintf(int fd, const char* format, ...) {
  char text[1024];
  va_list arguments;
  va_start(arguments, format);
  const int length = kr::uncancelled([&] { return vsnprintf(text, sizeof text, format, arguments); });
  va_end(arguments);
  if (length < 0) return -1;
  return static_cast<int>(write(fd, text, std::min(static_cast<size_t>(length), sizeof text - 1)));
}
