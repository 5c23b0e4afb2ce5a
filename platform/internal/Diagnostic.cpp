#include "platform/internal/Diagnostic.h"

#include "platform/internal/Self.h"
#include "platform/internal/Uncancelled.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>

namespace {

struct Release {
  void operator()(char* text) const { free(text); }
};

/// Waits for the stream's lock by looking every millisecond, because the system's wait for it cannot be cancelled.
bool put(int cancelState, FILE* stream, const char* text, size_t length) {
  while (ftrylockfile(stream) != 0)
    kr::pollPause(cancelState);
  kr::OnCancel onCancel{[stream] { funlockfile(stream); }}; // in any case
  return kr::cancellable(cancelState, [=] { return fwrite(text, 1, length, stream) == length; });
}

} // namespace

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

int print(int cancelState, FILE* stream, const char* format, va_list arguments) {
  char text[1024];
  va_list again;
  va_copy(again, arguments);
  int length = vsnprintf(text, sizeof text, format, arguments);
  std::unique_ptr<char, Release> longer;
  if (length >= static_cast<int>(sizeof text)) {
    const size_t size = static_cast<size_t>(length) + 1;
    longer.reset(static_cast<char*>(malloc(size)));
    length = longer != nullptr ? vsnprintf(longer.get(), size, format, again) : -1;
  }
  va_end(again);
  const char* const formatted = longer != nullptr ? longer.get() : text;
  // What cannot be converted ends the text where it stands, as it does with printf.
  const size_t count = length >= 0 ? static_cast<size_t>(length) : strlen(formatted);
  return put(cancelState, stream, formatted, count) ? length : -1;
}

void say(int cancelState, FILE* stream, const char* format, ...) {
  const int error = errno;
  va_list arguments;
  va_start(arguments, format);
  (void)print(cancelState, stream, format, arguments);
  va_end(arguments);
  errno = error;
}

void say(FILE* stream, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  uncancelled([&](int cancelState) { (void)print(cancelState, stream, format, arguments); });
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
