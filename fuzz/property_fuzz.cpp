// Property files: any bytes load as the file format says, and what was stored loads as the same settings. Then calls on
// an instance beside an ordinary map.
#include "fuzz/Target.h"

#include "platform/CKrProperty.h"

#include <algorithm>
#include <climits>
#include <sys/mman.h>
#include <unistd.h>

namespace {

CKrProperty* instance = nullptr;
KrPropMap stored; // what the instance must hold

/// The format, said another way.
KrPropMap parsed(const std::string& text) {
  KrPropMap settings;
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find_first_of("\r\n", at), text.size());
    if (end == at) break;
    const std::string line = text.substr(at, std::min<size_t>(end - at, 511)).c_str(); // a zero byte ends what counts
    const size_t equals = line.find('=');
    if (equals != std::string::npos) settings[line.substr(0, equals)] = line.substr(equals + 1);
    at = end + 1;
    const bool pair = at < text.size() && (text[at] == '\r' || text[at] == '\n') && text[at] != text[end];
    if (pair) ++at;
  }
  return settings;
}

class Properties {
public:
  explicit Properties(Input& in) : _in(in) { check(); }

  void check() {
    _name = _in.word(8);
    _value = _in.word(20);
    _found = stored.count(_name) > 0;
    _present = _found ? stored[_name] : _value; // the value serves as the default
  }

  void set() {
    instance->setProperty(_name.c_str(), _value.c_str());
    stored[_name] = _value;
  }

  void setNumber() {
    const auto number = _in.ConsumeIntegral<int32_t>();
    instance->setProperty(_name.c_str(), number);
    stored[_name] = std::to_string(number);
    FUZZ_CHECK(instance->getProperty(_name.c_str(), 0) == number);
  }

  void getLength() { FUZZ_CHECK(instance->getLength(_name.c_str(), _value.c_str()) == _present.size()); }

  void get() {
    std::string buffer(32, '#'), expected = buffer;
    const int size = _in.number(-1, 24);
    FUZZ_CHECK(instance->getProperty(_name.c_str(), buffer.data(), _value.c_str(), size) == buffer.data());
    if (size >= 0) {
      const std::string cut = _present.substr(0, size > 0 ? static_cast<size_t>(size) - 1 : 31) + '\0';
      expected.replace(0, cut.size(), cut);
    }
    FUZZ_CHECK(buffer == expected);
  }

  void getNumber() {
    const long long wide = strtoll(_present.c_str(), nullptr, 10);
    const auto expected = static_cast<int32_t>(std::clamp<long long>(wide, INT_MIN, INT_MAX));
    FUZZ_CHECK(instance->getProperty(_name.c_str(), 7) == (_found ? expected : 7));
  }

private:
  Input& _in;
  std::string _name, _value, _present;
  bool _found = false;
};

} // namespace

static void start() {
  krLogAddPrinter(krLogGetLogger("comps.kr"), "nowhere", [](const char*) {});
  instance = CKrProperty::getInstance(
      "memory",
      [](char*, KrPropMap& into) {
        into.clear();
        return true;
      },
      [](char*, KrPropMap& from) { return from == stored; });
}

static void fuzz(Input& in) {
  static const int fd = memfd_create("properties", MFD_CLOEXEC);
  std::string path = "/proc/self/fd/" + std::to_string(fd);
  const std::string text = in.bytes(4000);
  FUZZ_CHECK(ftruncate(fd, 0) == 0 && pwrite(fd, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()));
  KrPropMap settings = {{"left from before", ""}}, again;
  FUZZ_CHECK(CKrProperty::loadFile(path.data(), settings));
  FUZZ_CHECK(settings == parsed(text));
  FUZZ_CHECK(CKrProperty::storeFile(path.data(), settings) && CKrProperty::loadFile(path.data(), again));
  FUZZ_CHECK(again == settings);

  stored.clear();
  Properties properties(in);
  in.play(properties,
          {&Properties::set, &Properties::setNumber, &Properties::getLength, &Properties::get, &Properties::getNumber});
  FUZZ_CHECK(instance->store() && instance->load());
}
