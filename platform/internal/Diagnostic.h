// What the library says about itself: lines with a time stamp, on the console and in files under /var/log.
#ifndef TEV_PLATFORM_DIAGNOSTIC_H
#define TEV_PLATFORM_DIAGNOSTIC_H

#include "platform/krTime.h"

#include <cstdarg>
#include <cstdio>

namespace kr {

constexpr char logDirectory[] = "/var/log";

/// A text of the caller's, which may have left it out.
inline const char* orEmpty(const char* text) { return text != nullptr ? text : ""; }

/// A line of at most 511 characters; what is longer is cut.
struct Line {
  char text[512];
};

/// The diagnostic time stamp, "MM/DD hh:mm:ss.cc [thread id]", of a given moment and thread.
Line stamp(const KrTime& time, KrThreadId tid);

/// A line that begins with the diagnostic time stamp of now and the calling thread, and a blank.
Line stampedLine(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Prints to a standard stream, on any thread. While the stream takes nothing, or another thread keeps its lock, the
/// thread can be cancelled, in `cancelState` (the one that uncancelled() hands over); the stream's lock is free then.
/// Returns the number of bytes, or -1 as printf does.
int print(int cancelState, FILE* stream, const char* format, va_list arguments) __attribute__((format(printf, 3, 0)));

/// The same for what is said on the way: errno stays, and a console that takes nothing leaves no place to complain.
void say(int cancelState, FILE* stream, const char* format, ...) __attribute__((format(printf, 3, 4)));
void say(FILE* stream, const char* format, ...) __attribute__((format(printf, 2, 3))); ///< in the caller's state

/// Writes a line, and each of `frameCount` texts followed by a line feed, to the file `path` opened in stdio mode
/// `mode`. A file that cannot be opened is skipped. Called with cancellation disabled.
void writeFile(const char* path, const char* mode, const Line& line, const char* const* frames = nullptr,
               int frameCount = 0);

} // namespace kr

#endif
