// The layout of the identity EEPROM, for its factory contents and for the board tools.
#ifndef TEV_SIM_EEPROM_H
#define TEV_SIM_EEPROM_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace sim::eeprom {

constexpr size_t size = 256;
constexpr size_t serialOffset = 8;
constexpr size_t serialSize = 16;
constexpr size_t macsOffset = 32; // macCount addresses without gaps
constexpr size_t macCount = 2;

using Mac = std::array<uint8_t, 6>;

/// Parses six two-digit hexadecimal numbers separated by colons. Returns nothing for any other text.
[[nodiscard]] std::optional<Mac> parseMac(std::string_view text);
std::string formatMac(const Mac& mac);
/// Returns `mac` plus `steps`, the address of a further port.
Mac macAfter(const Mac& mac, unsigned steps);

/// Returns the bytes of the serial number's field, padded with zeros. Returns nothing if `text` is empty, is longer
/// than serialSize or has a character that is not printable ASCII.
[[nodiscard]] std::optional<std::string> serialField(std::string_view text);

/// Returns the contents as delivered, `size` bytes.
std::string factoryContents();

} // namespace sim::eeprom

#endif
