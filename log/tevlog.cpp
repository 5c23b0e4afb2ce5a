#include "log/tevlog.h"

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

template <class Step>
[[gnu::noinline]] void locked(Step& step) {
  std::lock_guard<std::mutex> lock(logMutex);
  step();
}

// Runs one step under the lock. A thread whose cancellation is asynchronous finishes the step first; this frame owns
// nothing with a destructor, because it is the one that such a cancellation may unwind. The type changes with the
// state: a cancellation that was sent while it was still enabled arrives as a signal a moment later, and the C library
// then looks at the type alone. Any other thread can be cancelled only where the file is written, and unwinds in order
// from there: the lock is released and the stream stays usable. The calls fail only for values that do not exist. The
// address sanitizer, which does not learn that an unwound frame is gone, is kept out of this one.
template <class Step>
__attribute__((noinline, no_sanitize("address"))) void uninterrupted(Step step) {
  int type = PTHREAD_CANCEL_DEFERRED, state = PTHREAD_CANCEL_ENABLE;
  (void)pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, &type);
  if (type == PTHREAD_CANCEL_DEFERRED) {
    locked(step);
    return;
  }
  (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
  locked(step);
  (void)pthread_setcancelstate(state, nullptr);
  (void)pthread_setcanceltype(type, nullptr);
}

} // namespace

/// The steps that the free functions make of a log.
class LogStep {
public:
  template <class Value>
  static tevlog& write(tevlog& out, Value value) {
    uninterrupted([&out, value] {
      if (out.writable()) *out._stream << value;
    });
    return out;
  }

  static tevlog& setBase(tevlog& out, std::ios_base& (*base)(std::ios_base&)) {
    uninterrupted([&out, base] {
      if (out.writable()) base(*out._stream);
    });
    return out;
  }

  // Text and line ends go straight to the buffer of the stream: no flag of the stream concerns them.
  static tevlog& writeText(tevlog& out, const char* text, std::streamsize length) {
    uninterrupted([&out, text, length] {
      if (out.writable() && out._stream->good() && out._stream->rdbuf()->sputn(text, length) != length)
        out._stream->setstate(std::ios_base::badbit);
    });
    return out;
  }

  static tevlog& endLine(tevlog& out) {
    uninterrupted([&out] {
      if (!out.writable() || !out._stream->good()) return;
      std::filebuf& file = *out._stream->rdbuf();
      if (file.sputc('\n') == std::filebuf::traits_type::eof() || file.pubsync() != 0)
        out._stream->setstate(std::ios_base::badbit);
    });
    return out;
  }

  static tevlog& setEnabled(tevlog& out, bool enabled) {
    uninterrupted([&out, enabled] { out._enabled = enabled; });
    return out;
  }

  static bool isEnabled(const tevlog& out) {
    bool enabled = false;
    uninterrupted([&out, &enabled] { enabled = out._enabled; });
    return enabled;
  }
};

tevlog::tevlog(const char* filename)
    : _filename(filename), _stream(new std::ofstream(_filename, std::ios_base::out | std::ios_base::trunc)),
      _enabled(false) {}

tevlog::~tevlog() {
  std::lock_guard<std::mutex> lock(logMutex);
  closeStream();
}

void tevlog::closeStream() {
  std::unique_ptr<std::ofstream> closing(_stream); // closes as it goes
  // Volatile, because a thread that outlives the static destructors still asks this member whether there is a stream,
  // and a compiler may drop an ordinary store into an object that is about to die.
  *const_cast<std::ofstream* volatile*>(&_stream) = nullptr;
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

// Before all other static objects of the program: prototypes of messages write to it when they register.
__attribute__((init_priority(200))) tevlog log("/tmp/transient.log");

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
tevlog& endl(tevlog& out) { return LogStep::endLine(out); }
tevlog& hex(tevlog& out) { return LogStep::setBase(out, std::hex); }
tevlog& dec(tevlog& out) { return LogStep::setBase(out, std::dec); }

tevlog& operator<<(tevlog& out, tevlog& (*manipulator)(tevlog&)) { return manipulator(out); }
tevlog& operator<<(tevlog& out, char value) { return LogStep::write(out, value); }
tevlog& operator<<(tevlog& out, const char* text) {
  return text == nullptr ? out : LogStep::writeText(out, text, static_cast<std::streamsize>(std::strlen(text)));
}
tevlog& operator<<(tevlog& out, unsigned int value) { return LogStep::write(out, value); }
tevlog& operator<<(tevlog& out, long value) { return LogStep::write(out, value); }
tevlog& operator<<(tevlog& out, int value) { return LogStep::write(out, value); }
tevlog& operator<<(tevlog& out, void* pointer) {
  return LogStep::write(out, reinterpret_cast<std::uintptr_t>(pointer));
}

} // namespace tev
