#include "sim/ServiceFault.h"

#include <charconv>

namespace sim {

namespace {

constexpr const char* kindNames[] = {"none", "silent", "late", "short", "split", "garbage", "dies", "full", "absent"};
constexpr int longestDelay = 60 * 1000;

} // namespace

std::string ServiceFault::text() const {
  return kindNames[kind] + (kind == late ? ":" + std::to_string(delay) : std::string());
}

std::optional<ServiceFault> ServiceFault::parse(std::string_view text) {
  for (int kind = none; kind <= absent; ++kind) {
    const std::string_view name = kindNames[kind];
    if (kind != late && text == name) return ServiceFault{static_cast<Kind>(kind), 0};
  }
  constexpr std::string_view latePrefix = "late:";
  if (text.substr(0, latePrefix.size()) != latePrefix) return std::nullopt;
  ServiceFault fault{late, 0};
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data() + latePrefix.size(), end, fault.delay);
  if (error != std::errc() || stop != end || fault.delay < 0 || fault.delay > longestDelay) return std::nullopt;
  return fault;
}

// Missing and too late replies are rare, because each costs the sender of the request three seconds.
ServiceFault FaultDice::roll() {
  if (_percent == 0 || below(always) >= _percent) return {};
  constexpr int tooLate = 3100; // milliseconds; senders wait for 3 s
  constexpr unsigned shortDelay = 40;
  switch (below(20)) {
  case 0:
    return {ServiceFault::silent, 0};
  case 1:
    return {ServiceFault::late, tooLate};
  case 2:
  case 3:
  case 4:
  case 5:
    return {ServiceFault::late, static_cast<int>(below(shortDelay))};
  case 6:
  case 7:
  case 8:
  case 9:
    return {ServiceFault::truncated, 0};
  case 10:
  case 11:
  case 12:
  case 13:
    return {ServiceFault::split, 0};
  case 14:
  case 15:
  case 16:
    return {ServiceFault::garbage, 0};
  default:
    return {ServiceFault::dies, 0};
  }
}

} // namespace sim
