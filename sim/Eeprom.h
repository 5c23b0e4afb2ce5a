// The layout of the identity EEPROM, shared by the board's first contents and the board tools.
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
constexpr size_t macsOffset = 32; // one after another
constexpr size_t macCount = 2;

using Mac = std::array<uint8_t, 6>;

/// Six two-digit hexadecimal numbers with colons between them; nothing for any other text.
[[nodiscard]] std::optional<Mac> parseMac(std::string_view text);
std::string formatMac(const Mac& mac);
/// The address that is `steps` above `mac`, for the board's further ports.
Mac macAfter(const Mac& mac, unsigned steps);

/// The bytes of the serial number's field, filled up with zeros. Nothing if `text` is empty, has more than serialSize
/// characters or holds one that is not printable ASCII.
[[nodiscard]] std::optional<std::string> serialField(std::string_view text);

/// All size bytes as the factory leaves them.
std::string factoryContents();

} // namespace sim::eeprom

#endif
