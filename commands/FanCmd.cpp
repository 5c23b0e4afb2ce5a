#include "commands/FanCmd.h"

#include "commands/Console.h"
#include "commands/Node.h"
#include "commands/Report.h"
#include "commands/Words.h"

#include <cstdint>
#include <fcntl.h>
#include <iostream>
#include <optional>

namespace {

constexpr const char* speedNode = "/sys/bus/i2c/devices/1-004c/speed";
constexpr const char* tachLowNode = "/sys/bus/i2c/devices/1-004c/tachcount_lsb";
constexpr const char* tachHighNode = "/sys/bus/i2c/devices/1-004c/tachcount_msb";
constexpr float tachCountToRpm = 0.5328f * 5400000.0f; // rpm = this / count

void setSpeed(const std::string& word) {
  const Node speed(speedNode, O_RDWR);
  if (!speed.isOpen()) {
    printNodeNotFound(speedNode);
    return;
  }
  speed.write(word); // the driver decides what it accepts
}

// Shows the setting and returns the tachometer's count; nothing if a node cannot be opened. The nodes are closed again
// before more is printed.
std::optional<int32_t> showSettingAndCount() {
  const Node speed(speedNode, O_RDONLY);
  const Node tachLow(tachLowNode, O_RDONLY);
  const Node tachHigh(tachHighNode, O_RDONLY);
  if (!speed.isOpen() || !tachLow.isOpen() || !tachHigh.isOpen()) return std::nullopt;
  const int setting = decimalIn(speed.read(3));
  Report::present->number("setting", setting);
  printLine(std::cout, "fan setting [0-63]: " + std::to_string(setting));
  const uint32_t low = hexIn(tachLow.read(5));
  const uint32_t high = hexIn(tachHigh.read(5));
  return static_cast<int32_t>((high << 8) + low);
}

void showStatus() {
  const auto count = showSettingAndCount();
  if (!count) {
    printLine(std::cerr, "error: couldn't determine the fan settings");
    return;
  }
  if (*count == 0) {
    Report::present->notThere("the tachometer's count");
    printLine(std::cerr, "error: tachometer count is 0; make sure tachometer count is enabled!");
    return;
  }
  const int rpm = static_cast<int>(tachCountToRpm / static_cast<float>(*count));
  Report::present->number("rpm", rpm);
  printLine(std::cout, "fan rpm: " + std::to_string(rpm));
}

} // namespace

bool FanCmd::operator()(const ArgVec& args) {
  if (args.size() <= 2) {
    showStatus();
  } else if (args[1] == "speed") {
    setSpeed(args[2]);
  } else {
    printUnsupportedSubcommand(args[1]);
  }
  return false;
}

const char* FanCmd::getkey() { return "fan"; }

const char* FanCmd::getlong() {
  return "  syntax:  fan [speed <value>]\n"
         "\n"
         "  description:\n"
         "    To GET the current fan setting and RPM, just enter 'fan'.\n"
         "    To SET the fan speed, enter 'fan speed <value> \n"
         "       where 'value' is an integer in the range of [0..64] (0=off/64=max).\n"
         "\n"
         "  examples:\n"
         "    tev-cli> fan           ### displays fan setting and RPM\n"
         "    tev-cli> fan speed 30  ### sets the fan speed to 30\n";
}

const char* FanCmd::getshort() { return "get/set fan configuration"; }
