#include "sim/ServiceFault.h"

#include <charconv>

namespace sim {

namespace {

constexpr const char* NAMES[] = {"none", "silent", "late", "short", "split", "garbage", "dies", "full", "absent"};
constexpr int LONGEST_DELAY = 60 * 1000;

} // namespace

std::string ServiceFault::text() const {
  return NAMES[kind] + (kind == LATE ? ":" + std::to_string(delay) : std::string());
}

std::optional<ServiceFault> ServiceFault::parse(std::string_view text) {
  for (int kind = NONE; kind <= ABSENT; ++kind) {
    const std::string_view name = NAMES[kind];
    if (kind != LATE && text == name) return ServiceFault{static_cast<Kind>(kind), 0};
  }
  constexpr std::string_view LATE_PREFIX = "late:";
  if (text.substr(0, LATE_PREFIX.size()) != LATE_PREFIX) return std::nullopt;
  ServiceFault late{LATE, 0};
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data() + LATE_PREFIX.size(), end, late.delay);
  if (error != std::errc() || stop != end || late.delay < 0 || late.delay > LONGEST_DELAY) return std::nullopt;
  return late;
}

// Replies that are not sent, or only after their user has given up, cost that user seconds each: few of many.
ServiceFault FaultDice::roll() {
  if (_percent == 0 || below(ALWAYS) >= _percent) return {};
  constexpr int TOO_LATE = 3100; // a little longer than users wait
  constexpr unsigned SOON = 40;
  switch (below(20)) {
  case 0:
    return {ServiceFault::SILENT, 0};
  case 1:
    return {ServiceFault::LATE, TOO_LATE};
  case 2:
  case 3:
  case 4:
  case 5:
    return {ServiceFault::LATE, static_cast<int>(below(SOON))};
  case 6:
  case 7:
  case 8:
  case 9:
    return {ServiceFault::SHORT, 0};
  case 10:
  case 11:
  case 12:
  case 13:
    return {ServiceFault::SPLIT, 0};
  case 14:
  case 15:
  case 16:
    return {ServiceFault::GARBAGE, 0};
  default:
    return {ServiceFault::DIES, 0};
  }
}

} // namespace sim
