#include "messaging/internal/ErrorTrace.h"

#include <cstdarg>
#include <cstdio>
#include <iostream>

void traceError(const char* format, ...) {
  char line[200];
  va_list arguments;
  va_start(arguments, format);
  (void)std::vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  std::cerr << line << std::endl;
}
