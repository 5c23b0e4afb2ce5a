#include "sim/Eeprom.h"

#include <algorithm>
#include <cstdio>

namespace sim::eeprom {

std::optional<Mac> parseMac(std::string_view text) {
  constexpr std::string_view hexDigits = "0123456789abcdef0123456789ABCDEF";
  Mac mac;
  if (text.size() != mac.size() * 3 - 1) return std::nullopt;
  for (size_t i = 0; i < mac.size(); ++i) {
    const size_t high = hexDigits.find(text[i * 3]);
    const size_t low = hexDigits.find(text[i * 3 + 1]);
    if (high == hexDigits.npos || low == hexDigits.npos) return std::nullopt;
    if (i + 1 < mac.size() && text[i * 3 + 2] != ':') return std::nullopt;
    mac[i] = static_cast<uint8_t>((high % 16) * 16 + low % 16);
  }
  return mac;
}

std::string formatMac(const Mac& mac) {
  char text[18];
  (void)std::snprintf(text, sizeof text, "%02X:%02X:%02X:%02X:%02X:%02X", mac[0], mac[1], mac[2], mac[3], mac[4],
                      mac[5]);
  return text;
}

Mac macAfter(const Mac& mac, unsigned steps) {
  Mac next = mac;
  unsigned carry = steps;
  for (auto byte = next.rbegin(); byte != next.rend() && carry > 0; ++byte) {
    carry += *byte;
    *byte = static_cast<uint8_t>(carry & 0xffU);
    carry >>= 8U;
  }
  return next;
}

std::optional<std::string> serialField(std::string_view text) {
  if (text.empty() || text.size() > serialSize) return std::nullopt;
  if (!std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; })) return std::nullopt;
  std::string field(text);
  field.resize(serialSize, '\0');
  return field;
}

std::string factoryContents() {
  std::string bytes(size, '\xff');
  bytes.replace(0, serialOffset, std::string("TEV-ID\0\1", serialOffset));
  bytes.replace(serialOffset, serialSize, *serialField("480213UNIT000001"));
  const Mac first = {0x02, 0x1A, 0x2B, 0x3C, 0x4D, 0x00};
  for (unsigned port = 0; port < macCount; ++port) {
    const Mac mac = macAfter(first, port);
    std::copy(mac.begin(), mac.end(), bytes.begin() + static_cast<ptrdiff_t>(macsOffset + port * mac.size()));
  }
  return bytes;
}

} // namespace sim::eeprom
