// The file behind a trace log: text and numbers through a buffer.
#ifndef TEV_LOG_LOGFILE_H
#define TEV_LOG_LOGFILE_H

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <unistd.h>

namespace tev {

/// flush() is inline: no other call lies between a trace line and its write.
///
/// Threads: one at a time. A thread may be cancelled in flush(), where the file is written; what was being written is
/// then written again. None may be cancelled in the destructor.
class LogFile {
public:
  /// Creates or empties the file. Programs that this one starts do not inherit it. If it cannot be opened, all that is
  /// written is lost.
  ///
  /// The file must be a regular one with a single name that belongs to the effective user; symbolic links are not
  /// followed, and opening never blocks. So in a directory where others may create files, a log never empties or fills
  /// a file that is not its own. While it is open no other process can open it as a log: the file is locked.
  explicit LogFile(const char* path);

  /// Writes what is buffered and closes the file.
  ~LogFile();

  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;

  /// 0 if the file is open. Otherwise an errno: EBUSY if another process writes this log, EEXIST if something under
  /// this name cannot be a log (see the constructor), or what the system reported.
  [[nodiscard]] int failure() const { return _fd >= 0 ? 0 : _failure; }

  /// Flushes only when the buffer is full.
  void put(const char* text, size_t length) {
    while (length > sizeof _buffer - _used) {
      const size_t part = sizeof _buffer - _used;
      std::memcpy(_buffer + _used, text, part);
      _used += part;
      text += part;
      length -= part;
      flush();
    }
    std::memcpy(_buffer + _used, text, length);
    _used += length;
  }

  /// In the current base; digits above nine in lower case, no prefix. A negative number has a sign in base ten only,
  /// and is shown in the others as its type's unsigned number.
  template <class Integer>
  void put(Integer number);

  /// 10 or 16; 10 in the beginning.
  void setBase(int base) { _base = base; }

  /// Writes what is buffered. What the file does not take, on a full disk for instance, is lost.
  void flush() {
    for (size_t written = 0; _fd >= 0 && written < _used;) {
      const ssize_t count = write(_fd, _buffer + written, _used - written);
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) break;
      written += static_cast<size_t>(count);
    }
    _used = 0;
  }

private:
  int _failure = 0;
  int _fd; ///< -1: not open
  int _base = 10;
  size_t _used = 0;
  char _buffer[4096];
};

} // namespace tev

#endif
