// fioRdString and krFioRdString on any bytes, with reads that fail and buffers of any size.
#include "fuzz/Check.h"
#include "fuzz/StandIns.h"

#include "platform/krFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fuzzer/FuzzedDataProvider.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

/// Lets one read of many fail.
class Failing : public StandIns {
public:
  explicit Failing(size_t at) : _at(at) {}

  ssize_t haveRead(int fd, const void*, size_t wanted, ssize_t count) override {
    FUZZ_CHECK(wanted == 1); // nothing behind the line may be consumed
    if (_reads++ != _at) return count;
    FUZZ_CHECK(count <= 0 || lseek(fd, -1, SEEK_CUR) >= 0);
    errno = EIO;
    return -1;
  }

private:
  const size_t _at;
  size_t _reads = 0;
};

/// What a call must do.
struct Expected {
  int result;
  std::string stored;
};

Expected expected(const std::string& text, size_t& at, size_t& reads, size_t failAt, int size, bool strict) {
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

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  FuzzedDataProvider data(bytes, size);
  const size_t failAt = data.ConsumeIntegralInRange<size_t>(0, 400);
  const std::string text = data.ConsumeRandomLengthString(600);
  static const int fd = memfd_create("lines", MFD_CLOEXEC);
  FUZZ_CHECK(ftruncate(fd, 0) == 0 && pwrite(fd, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()));
  FUZZ_CHECK(lseek(fd, 0, SEEK_SET) == 0);
  Failing failing(failAt);
  size_t at = 0, reads = 0;
  while (data.remaining_bytes() > 0) {
    const bool strict = data.ConsumeBool();
    const int room = data.ConsumeIntegralInRange(-1, 80);
    std::string buffer(static_cast<size_t>(std::max(room, 0)), '#');
    const Expected wanted = expected(text, at, reads, failAt, room, strict);
    const int result = (strict ? krFioRdString : fioRdString)(fd, buffer.data(), room);
    FUZZ_CHECK(result == wanted.result);
    FUZZ_CHECK(buffer.compare(0, wanted.stored.size(), wanted.stored) == 0);
    FUZZ_CHECK(std::all_of(buffer.begin() + static_cast<ptrdiff_t>(wanted.stored.size()), buffer.end(),
                           [](char c) { return c == '#'; }) ||
               result < 0);
  }
  return 0;
}
