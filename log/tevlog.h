// The trace log: plain text, streamed with <<, in one file under /tmp.
//
//   tev::log << "Creating Task: " << name << tev::endl;
//
// There is one in the process, tev::log. It carries no time stamps, levels or prefixes: the file holds exactly what is
// streamed. Only tev::endl flushes.
//
// Threads: every operator call is one step under one lock, so pieces of two threads may alternate but never mix. A
// thread that is cancelled never leaves the lock behind: with asynchronous cancellation it finishes the step it is in,
// otherwise it can end where the file is written, with the piece written once or twice. A thread that can be cancelled
// must not make, assign or destroy a log. After the static destructors have run, streaming writes nothing.
#ifndef TEV_LOG_TEVLOG_H
#define TEV_LOG_TEVLOG_H

#include <string>

namespace tev {

class LogFile;

class tevlog {
public:
  /// Creates or empties the file `filename` (of any length) and owns the stream on it. The log starts
  /// disabled. Only a regular file of the effective user's, with one name, which no other process writes as a log, is
  /// opened; no link is followed, and nothing blocks. A file that cannot be opened is not an error: what is written is
  /// lost, and Failure() says why. Null: no file. Throws std::bad_alloc.
  explicit tevlog(const char* filename);

  /// Closes the file, if this object still owns one.
  virtual ~tevlog();

  tevlog(const tevlog&) = delete;

  /// Takes over `other`'s file, name and flag and leaves `other` without a file; the file held so far is closed.
  /// Assigning a log to itself changes nothing. Throws std::bad_alloc, in which case nothing has changed.
  tevlog& operator=(tevlog& other);

  /// Whether output is written.
  [[nodiscard]] bool IsEnabled() const;

  /// Why this log has no file: 0 if it has one; EBADF if it was made without or assigned to another log; EBUSY if
  /// another process writes a log of that name; EEXIST if there is something else under that name: no regular file, one
  /// of another user, or one with several names; otherwise the system's errno.
  [[nodiscard]] int Failure() const;

private:
  friend class LogStep;

  bool writable() const { return _stream != nullptr && _enabled; }
  void closeStream();

  std::string _filename;
  LogFile* _stream; ///< owned; null after the log was assigned to another
  bool _enabled;
};

/// The trace log of the process. Before main it is on "/tmp/transient.log", disabled; initlog gives it its real file. A
/// program that wants no trace log defines it itself, without a file; the static library's is then not linked. Not with
/// the shared library, which would construct the program's object a second time.
extern tevlog log;

/// Switches tev::log to a new file, created or emptied. The log is disabled afterwards. When memory runs out nothing
/// changes and nothing is reported. Other exceptions pass through.
void initlog(const char* filename);

tevlog& enable(tevlog& out);
tevlog& disable(tevlog& out);

/// Ends the line with one newline character and flushes.
tevlog& endl(tevlog& out);

/// The base of the integers and pointers that follow. Without effect on a disabled log.
tevlog& hex(tevlog& out);
tevlog& dec(tevlog& out);

inline tevlog& operator<<(tevlog& out, tevlog& (*manipulator)(tevlog&)) { return manipulator(out); }
tevlog& operator<<(tevlog& out, char value);
tevlog& operator<<(tevlog& out, const char* text); ///< a null text writes nothing
tevlog& operator<<(tevlog& out, unsigned int value);
tevlog& operator<<(tevlog& out, long value);
tevlog& operator<<(tevlog& out, int value);

/// The pointer's numeric value as an unsigned integer in the current base, without a prefix.
tevlog& operator<<(tevlog& out, void* pointer);

} // namespace tev

#endif
