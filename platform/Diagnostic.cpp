#include "platform/Diagnostic.h"

#include "platform/Self.h"
#include "platform/Uncancelled.h"

#include <cstdarg>
#include <cstring>
#include <ctime>

namespace kr {

Line stamp(const KrTime& time, KrThreadId tid) {
  const time_t seconds = static_cast<time_t>(time.seconds);
  tm local{};
  // localtime_r fails only for a year beyond an int; the line then carries zeros.
  (void)localtime_r(&seconds, &local);
  Line line{};
  (void)snprintf(line.text, sizeof line.text, "%02d/%02d %02d:%02d:%02d.%02ld [%u]", local.tm_mon + 1, local.tm_mday,
                 local.tm_hour, local.tm_min, local.tm_sec, static_cast<long>(time.nanoseconds / 10'000'000),
                 shortId(tid));
  return line;
}

Line stampedLine(const char* format, ...) {
  KrTime now{};
  // A clock that cannot be read leaves the epoch in the line.
  (void)krGetTime(&now);
  Line line = stamp(now, self());
  size_t length = strlen(line.text);
  line.text[length++] = ' ';
  va_list arguments;
  va_start(arguments, format);
  (void)vsnprintf(line.text + length, sizeof line.text - length, format, arguments);
  va_end(arguments);
  return line;
}

void say(FILE* stream, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  // A console that takes nothing leaves no place to complain.
  uncancelled([&] { (void)vfprintf(stream, format, arguments); });
  va_end(arguments);
}

void writeFile(const char* path, const char* mode, const Line& line, const char* const* frames, int frameCount) {
  FILE* file = fopen(path, mode);
  if (file == nullptr) return;
  // The copy on the console is complete even when the disk is full, so a short file is left as it is.
  (void)fputs(line.text, file);
  for (int i = 0; i < frameCount; ++i)
    (void)fprintf(file, "%s\n", frames[i]);
  (void)fclose(file);
}

} // namespace kr
