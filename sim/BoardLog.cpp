#include "sim/BoardLog.h"

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <system_error>

namespace sim {

std::string timeOfDay() {
  timespec now = {};
  tm local = {};
  (void)clock_gettime(CLOCK_REALTIME, &now); // cannot fail with this clock
  if (localtime_r(&now.tv_sec, &local) == nullptr) return "";
  char text[32];
  (void)std::snprintf(text, sizeof text, "%02d:%02d:%02d.%03ld", local.tm_hour, local.tm_min, local.tm_sec,
                      now.tv_nsec / 1000000);
  return text;
}

void BoardLog::add(std::string_view line) {
  const std::string text = (_withTimes ? timeOfDay() + " " : "").append(line) + "\n";
  for (kr::Descriptor& file : _files) {
    if (!file) continue;
    const ssize_t written = write(file.get(), text.data(), text.size());
    if (written == static_cast<ssize_t>(text.size())) continue;
    const std::string why = written < 0 ? std::generic_category().message(errno) : "no room for the whole line";
    (void)std::fprintf(stderr, "tev-sim: cannot write the board's log: %s\n", why.c_str());
    (void)file.close(); // the failure is reported above
  }
}

} // namespace sim
