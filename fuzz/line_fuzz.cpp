// fioRdString and krFioRdString on any bytes, with reads that fail and buffers of any size.
#include "fuzz/StandIns.h"

#include "platform/krFile.h"

#include <algorithm>
#include <sys/mman.h>

namespace {

/// Lets one read of many fail.
class Failing : public StandIns {
public:
  explicit Failing(size_t at) : _at(at) {}

  ssize_t read(int fd, void* bytes, size_t size) override {
    FUZZ_CHECK(size == 1); // nothing behind the line may be consumed
    if (_reads++ != _at) return SystemCalls::read(fd, bytes, size);
    errno = EIO;
    return -1;
  }

private:
  const size_t _at;
  size_t _reads = 0;
};

/// What a call must return and store.
std::pair<int, std::string> expected(const std::string& text, size_t& at, size_t& reads, size_t failAt, int size,
                                     bool strict) {
  if (size <= 0) return {strict ? -1 : 0, ""};
  std::string stored;
  while (stored.size() < static_cast<size_t>(size)) {
    const bool fails = reads++ == failAt;
    if (fails || at == text.size()) {
      if (stored.empty()) return {-1, ""};
      stored += '\0';
      return {fails && strict ? -1 : static_cast<int>(stored.size()), stored};
    }
    const char c = text[at++];
    stored += c == '\n' ? '\0' : c;
    if (stored.back() == '\0') break;
  }
  return {static_cast<int>(stored.size()), stored};
}

} // namespace

static void start() {}

static void fuzz(Input& in) {
  const auto failAt = in.number<size_t>(0, 400);
  const std::string text = in.bytes(600);
  static const int fd = memfd_create("lines", MFD_CLOEXEC);
  FUZZ_CHECK(ftruncate(fd, 0) == 0 && pwrite(fd, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()));
  FUZZ_CHECK(lseek(fd, 0, SEEK_SET) == 0);
  Failing failing(failAt);
  size_t at = 0, reads = 0;
  while (in.remaining_bytes() > 0) {
    const bool strict = in.once();
    const int room = in.number(-1, 80);
    std::string buffer(static_cast<size_t>(std::max(room, 0)), '#');
    const auto [result, stored] = expected(text, at, reads, failAt, room, strict);
    FUZZ_CHECK((strict ? krFioRdString : fioRdString)(fd, buffer.data(), room) == result);
    FUZZ_CHECK(buffer.compare(0, stored.size(), stored) == 0);
    FUZZ_CHECK(result < 0 || buffer.find_first_not_of('#', stored.size()) == buffer.npos);
  }
}
