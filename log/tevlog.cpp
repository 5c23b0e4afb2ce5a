#include "log/tevlog.h"

#include "log/internal/LogFile.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <pthread.h>
#include <utility>

namespace tev {

namespace {

// One lock for all logs of the process: an assignment concerns two of them. Never destroyed, so that a thread that
// outlives the static destructors still finds it.
std::mutex logMutex;

// Asks for deferred cancellation; the type it was before.
int deferCancelling() {
  int type = PTHREAD_CANCEL_DEFERRED;
  (void)pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, &type);
  return type;
}

template <class Log, class Step>
[[gnu::noinline]] Log& locked(Log& out, Step step) {
  std::lock_guard<std::mutex> lock(logMutex);
  step(out);
  return out;
}

// Runs one step on a log under the lock. A thread whose cancellation is asynchronous finishes the step first; this
// frame owns nothing with a destructor, because it is the one that such a cancellation may unwind. The type changes
// with the state: a cancellation that was sent while it was still enabled arrives as a signal a moment later, and the C
// library then looks at the type alone. Any other thread can be cancelled only where the file is written, and unwinds
// in order from there: the lock is released and the stream stays usable. The calls fail only for values that do not
// exist. The address sanitizer, which does not learn that an unwound frame is gone, is kept out of this one.
//
// Steps are small and go by value: the common case is a jump then, and few frames lie between the system call of a
// flush and the caller. Each of them costs: the kernel makes the processor forget where they return to.
template <class Log, class Step>
__attribute__((noinline, no_sanitize("address"))) Log& uninterrupted(Log& out, Step step) {
  const int type = deferCancelling();
  if (type == PTHREAD_CANCEL_DEFERRED) return locked(out, step);
  int state = PTHREAD_CANCEL_ENABLE;
  (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
  locked(out, step);
  (void)pthread_setcancelstate(state, nullptr);
  (void)pthread_setcanceltype(type, nullptr);
  return out;
}

} // namespace

/// The steps that the free functions make of a log.
class LogStep {
public:
  /// A step on the stream of a log that is writable.
  template <class Step>
  static tevlog& write(tevlog& out, Step step) {
    return uninterrupted(out, [step](tevlog& trace) {
      if (trace.writable()) step(*trace._stream);
    });
  }

  static tevlog& setEnabled(tevlog& out, bool enabled) {
    return uninterrupted(out, [enabled](tevlog& trace) { trace._enabled = enabled; });
  }

  static bool isEnabled(const tevlog& out) {
    bool enabled = false;
    uninterrupted(out, [&enabled](const tevlog& trace) { enabled = trace._enabled; });
    return enabled;
  }

  static int failure(const tevlog& out) {
    int reason = 0;
    uninterrupted(
        out, [&reason](const tevlog& trace) { reason = trace._stream != nullptr ? trace._stream->failure() : EBADF; });
    return reason;
  }
};

tevlog::tevlog(const char* filename)
    : _filename(filename != nullptr ? filename : ""), _stream(filename != nullptr ? new LogFile(filename) : nullptr),
      _enabled(false) {}

tevlog::~tevlog() {
  std::lock_guard<std::mutex> lock(logMutex);
  closeStream();
}

void tevlog::closeStream() {
  const std::unique_ptr<LogFile> closing(_stream); // its destructor closes the file
  // Volatile, because a thread that outlives the static destructors still asks this member whether there is a stream,
  // and a compiler may drop an ordinary store into an object that is about to die.
  *const_cast<LogFile* volatile*>(&_stream) = nullptr;
}

tevlog& tevlog::operator=(tevlog& other) {
  if (this == &other) return *this;
  std::string name = other._filename; // the one step that can throw comes first
  std::lock_guard<std::mutex> lock(logMutex);
  closeStream();
  _filename = std::move(name);
  _stream = std::exchange(other._stream, nullptr);
  _enabled = other._enabled;
  return *this;
}

bool tevlog::IsEnabled() const { return LogStep::isEnabled(*this); }

int tevlog::Failure() const { return LogStep::failure(*this); }

void initlog(const char* filename) {
  try {
    std::unique_ptr<tevlog> fresh(new tevlog(filename));
    log = *fresh;
  } catch (const std::bad_alloc&) {
    // The log keeps the file and the flag it had.
  }
}

tevlog& enable(tevlog& out) { return LogStep::setEnabled(out, true); }
tevlog& disable(tevlog& out) { return LogStep::setEnabled(out, false); }
tevlog& hex(tevlog& out) {
  return LogStep::write(out, [](LogFile& file) { file.setBase(16); });
}
tevlog& dec(tevlog& out) {
  return LogStep::write(out, [](LogFile& file) { file.setBase(10); });
}
tevlog& endl(tevlog& out) {
  return LogStep::write(out, [](LogFile& file) {
    file.put("\n", 1);
    file.flush();
  });
}

namespace {

tevlog& writeText(tevlog& out, const char* text, size_t length) {
  return LogStep::write(out, [text, length](LogFile& file) { file.put(text, length); });
}

template <class Integer>
tevlog& writeNumber(tevlog& out, Integer number) {
  return LogStep::write(out, [number](LogFile& file) { file.put(number); });
}

} // namespace

tevlog& operator<<(tevlog& out, char value) { return writeText(out, &value, 1); }
tevlog& operator<<(tevlog& out, const char* text) {
  return text == nullptr ? out : writeText(out, text, std::strlen(text));
}
tevlog& operator<<(tevlog& out, unsigned int value) { return writeNumber(out, value); }
tevlog& operator<<(tevlog& out, long value) { return writeNumber(out, value); }
tevlog& operator<<(tevlog& out, int value) { return writeNumber(out, value); }
tevlog& operator<<(tevlog& out, void* pointer) { return writeNumber(out, reinterpret_cast<std::uintptr_t>(pointer)); }

} // namespace tev
