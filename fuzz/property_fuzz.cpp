// Property files: any bytes load as the file format says, and what was stored loads as the same settings. Then calls on
// an instance beside an ordinary map.
#include "fuzz/Check.h"

#include "platform/CKrProperty.h"

#include <climits>
#include <cstring>
#include <fuzzer/FuzzedDataProvider.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

/// The format, said another way.
KrPropMap parsed(const std::string& text) {
  KrPropMap settings;
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find_first_of("\r\n", at), text.size());
    const std::string line = text.substr(at, std::min<size_t>(end - at, 511)).c_str(); // a zero byte ends it
    if (line.empty()) break;
    const size_t equals = line.find('=');
    if (equals != std::string::npos) settings[line.substr(0, equals)] = line.substr(equals + 1);
    at = end + 1;
    const bool pair = at < text.size() && (text[at] == '\r' || text[at] == '\n') && text[at] != text[end];
    if (pair) ++at;
  }
  return settings;
}

/// A file in memory.
class File {
public:
  File() : _fd(memfd_create("properties", MFD_CLOEXEC)), _path("/proc/self/fd/" + std::to_string(_fd)) {
    FUZZ_CHECK(_fd >= 0);
  }
  void fill(const std::string& text) const {
    FUZZ_CHECK(ftruncate(_fd, 0) == 0);
    FUZZ_CHECK(pwrite(_fd, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()));
  }
  char* path() { return _path.data(); }

private:
  const int _fd;
  std::string _path;
};

void start() {
  KrLogger* const log = krLogGetLogger("comps.kr");
  krLogAddPrinter(log, "nowhere", [](const char*) {});
}

void call(CKrProperty& instance, KrPropMap& model, FuzzedDataProvider& data) {
  const std::string name = data.ConsumeRandomLengthString(8).c_str();
  const std::string value = data.ConsumeRandomLengthString(20).c_str();
  const auto found = model.find(name);
  const std::string present = found != model.end() ? found->second : value; // the value serves as the default
  switch (data.ConsumeIntegralInRange(0, 4)) {
  case 0:
    instance.setProperty(name.c_str(), value.c_str());
    model[name] = value;
    break;
  case 1: {
    const auto number = data.ConsumeIntegral<int32_t>();
    instance.setProperty(name.c_str(), number);
    model[name] = std::to_string(number);
    FUZZ_CHECK(instance.getProperty(name.c_str(), 0) == number);
    break;
  }
  case 2:
    FUZZ_CHECK(instance.getLength(name.c_str(), value.c_str()) == present.size());
    break;
  case 3: {
    char buffer[32];
    memset(buffer, '#', sizeof buffer);
    const int size = data.ConsumeIntegralInRange(-1, 24);
    FUZZ_CHECK(instance.getProperty(name.c_str(), buffer, value.c_str(), size) == buffer);
    const std::string expected = size < 0 ? "" : present.substr(0, size > 0 ? static_cast<size_t>(size) - 1 : 31);
    FUZZ_CHECK(size < 0 ? buffer[0] == '#' : expected == buffer);
    for (size_t i = size < 0 ? 0 : expected.size() + 1; i < sizeof buffer; ++i)
      FUZZ_CHECK(buffer[i] == '#');
    break;
  }
  default: {
    const long long wide = strtoll(present.c_str(), nullptr, 10);
    const int32_t expected = static_cast<int32_t>(std::min<long long>(std::max<long long>(wide, INT_MIN), INT_MAX));
    FUZZ_CHECK(instance.getProperty(name.c_str(), 7) == (found != model.end() ? expected : 7));
  }
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  static const bool started = (start(), true);
  (void)started;
  FuzzedDataProvider data(bytes, size);
  static File file;
  const std::string text = data.ConsumeRandomLengthString(4000);
  file.fill(text);
  KrPropMap settings = {{"left from before", ""}};
  FUZZ_CHECK(CKrProperty::loadFile(file.path(), settings));
  FUZZ_CHECK(settings == parsed(text));
  KrPropMap again;
  FUZZ_CHECK(CKrProperty::storeFile(file.path(), settings) && CKrProperty::loadFile(file.path(), again));
  FUZZ_CHECK(again == settings);

  static KrPropMap* stored = nullptr;
  static CKrProperty* const instance = CKrProperty::getInstance(
      "memory",
      [](char*, KrPropMap& into) {
        into.clear();
        return true;
      },
      [](char*, KrPropMap& from) { return *stored == from; });
  KrPropMap model;
  stored = &model;
  while (data.remaining_bytes() > 0)
    call(*instance, model, data);
  FUZZ_CHECK(instance->store() && instance->load());
  return 0;
}
