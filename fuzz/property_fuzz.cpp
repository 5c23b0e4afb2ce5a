// Property files: any bytes load as the file format says, and what was stored loads as the same settings.
#include "fuzz/Target.h"

#include "platform/CKrProperty.h"

#include <algorithm>
#include <sys/mman.h>
#include <unistd.h>

namespace {

/// The format, written in another way than the product's loop over characters.
KrPropMap parsed(const std::string& text) {
  KrPropMap settings;
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find_first_of("\r\n", at), text.size());
    if (end == at) break;
    const std::string line = text.substr(at, std::min<size_t>(end - at, 511)).c_str(); // cut at a zero byte
    const size_t equals = line.find('=');
    if (equals != std::string::npos) settings[line.substr(0, equals)] = line.substr(equals + 1);
    at = end + 1;
    const bool pair = at < text.size() && (text[at] == '\r' || text[at] == '\n') && text[at] != text[end];
    if (pair) ++at;
  }
  return settings;
}

} // namespace

static void start() {
  krLogAddPrinter(krLogGetLogger("comps.kr"), "nowhere", [](const char*) {});
}

static void fuzz(Input& in) {
  static const int fd = memfd_create("properties", MFD_CLOEXEC);
  std::string path = "/proc/self/fd/" + std::to_string(fd);
  const std::string text = in.ConsumeRemainingBytesAsString();
  FUZZ_CHECK(ftruncate(fd, 0) == 0 && pwrite(fd, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()));
  KrPropMap settings = {{"left from before", ""}}, again;
  FUZZ_CHECK(CKrProperty::loadFile(path.data(), settings));
  FUZZ_CHECK(settings == parsed(text));
  FUZZ_CHECK(CKrProperty::storeFile(path.data(), settings) && CKrProperty::loadFile(path.data(), again));
  FUZZ_CHECK(again == settings);
}
