// A directory stream that closes itself. For code that runs with cancellation disabled.
#ifndef TEV_PLATFORM_DIRECTORY_H
#define TEV_PLATFORM_DIRECTORY_H

#include <cerrno>
#include <dirent.h>

namespace kr {

class Directory {
public:
  explicit Directory(const char* path) : _stream(opendir(path)) {}
  ~Directory() {
    if (_stream != nullptr) (void)closedir(_stream); // nothing was written to it
  }
  Directory(const Directory&) = delete;
  Directory& operator=(const Directory&) = delete;

  explicit operator bool() const { return _stream != nullptr; }
  int descriptor() const { return dirfd(_stream); }

  /// The next entry, "." and ".." included. Null at the end with errno 0, and on failure with another errno.
  const dirent* next() {
    errno = 0;
    return readdir(_stream);
  }

private:
  DIR* const _stream;
};

/// Removes the files and empty directories in the directory `path`. Returns how many entries are left (errno says why
/// the last one is), or -1 when the directory cannot be opened.
int removeEntries(const char* path);

} // namespace kr

#endif
