#include "sim/Eeprom.h"

#include <gtest/gtest.h>

using namespace sim;
using namespace std::string_literals;

TEST(Eeprom, MacAddresses) {
  for (const char* good : {"02:1A:2B:3C:4D:01", "00:00:00:00:00:00", "FF:FF:FF:FF:FF:FF"}) {
    const auto mac = eeprom::parseMac(good);
    ASSERT_TRUE(mac) << good;
    EXPECT_EQ(eeprom::formatMac(*mac), good);
  }
  EXPECT_EQ(eeprom::parseMac("0a:bC:00:00:00:00"), (eeprom::Mac{0x0a, 0xbc, 0, 0, 0, 0}));
  for (const char* bad : {"", "02", "02:1A:2B:3C:4D", "02:1A:2B:3C:4D:0", "02:1A:2B:3C:4D:011", "02-1A-2B-3C-4D-01",
                          "02:1A:2B:3C:4D:0G", "02:1A:2B:3C:4D:01:", " 2:1A:2B:3C:4D:01", "021:A:2B:3C:4D:01"}) {
    EXPECT_FALSE(eeprom::parseMac(bad)) << bad;
  }
  EXPECT_EQ(eeprom::macAfter({0, 0, 0, 0, 0xff, 0xff}, 1), (eeprom::Mac{0, 0, 0, 1, 0, 0}));
  EXPECT_EQ(eeprom::macAfter({255, 255, 255, 255, 255, 254}, 3), (eeprom::Mac{0, 0, 0, 0, 0, 1}));
  EXPECT_EQ(eeprom::macAfter({1, 2, 3, 4, 5, 6}, 0), (eeprom::Mac{1, 2, 3, 4, 5, 6}));
}

TEST(Eeprom, SerialNumberFillsItsField) {
  EXPECT_EQ(eeprom::serialField("480213UNIT654321"), "480213UNIT654321");
  EXPECT_EQ(eeprom::serialField("ABC"), "ABC"s + std::string(13, '\0'));
  for (const auto& bad : {""s, "480213UNIT6543210"s, "a\nb"s, "a\0b"s, "\x80"s})
    EXPECT_FALSE(eeprom::serialField(bad));
  const std::string bytes = eeprom::factoryContents();
  ASSERT_EQ(bytes.size(), eeprom::size);
  EXPECT_EQ(bytes.substr(8, 16), "480213UNIT000001");
}
