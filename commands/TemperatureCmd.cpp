#include "commands/TemperatureCmd.h"

#include "commands/Console.h"
#include "commands/Node.h"
#include "commands/Report.h"
#include "commands/Words.h"

#include <fcntl.h>
#include <iostream>
#include <optional>

namespace {

constexpr const char* temperatureNode = "/sys/bus/i2c/devices/1-004c/temperature";
constexpr const char* setpointNode = "/sys/bus/i2c/devices/1-004c/setpoint";
constexpr const char* alertNode = "/sys/class/gpio/gpio27/value"; // active low
constexpr int rawToCelsius = 11;                                  // raw + 11 = degrees Celsius
constexpr size_t setpointWriteSize = 2;

void setSetpoint(const std::string& word) {
  const Node setpoint(setpointNode, O_RDWR);
  if (!setpoint.isOpen()) {
    printNodeNotFound(setpointNode);
    return;
  }
  // The driver takes two bytes: a shorter text ends in a zero byte, a longer one is cut.
  std::string raw = std::to_string(static_cast<long long>(wordToInt(word)) - rawToCelsius);
  raw.resize(setpointWriteSize, '\0');
  setpoint.write(raw);
}

int celsiusIn(const std::string& raw) { return decimalIn(raw) + rawToCelsius; }

std::string celsiusText(int celsius) { return std::to_string(celsius) + " degrees Celsius"; }

struct Status {
  std::string alert, temperature, setpoint; // as the nodes have them
};

// Nothing if a node cannot be opened. The nodes are closed again before anything is printed.
std::optional<Status> readStatus() {
  const Node alert(alertNode, O_RDONLY);
  const Node temperature(temperatureNode, O_RDONLY);
  const Node setpoint(setpointNode, O_RDONLY);
  if (!alert.isOpen() || !temperature.isOpen() || !setpoint.isOpen()) return std::nullopt;
  return Status{alert.read(2), temperature.read(3), setpoint.read(3)};
}

void showStatus() {
  const auto status = readStatus();
  if (!status) {
    printLine(std::cerr, "error: couldn't determine the temperature/fan status");
    return;
  }
  const bool alerting = status->alert.substr(0, 1) == "0";
  const int celsius = celsiusIn(status->temperature);
  const int setpoint = celsiusIn(status->setpoint);
  Report::present->flag("alert", alerting);
  Report::present->number("celsius", celsius);
  Report::present->number("setpoint", setpoint);
  printLine(std::cout, std::string("temperature alert status: *** ") + (alerting ? "on" : "off") + " ***");
  printLine(std::cout, "temperature: " + celsiusText(celsius));
  printLine(std::cout, "temperature high point setting: " + celsiusText(setpoint));
}

} // namespace

bool TemperatureCmd::operator()(const ArgVec& args) {
  if (args.size() <= 2) {
    showStatus();
  } else if (args[1] == "setpoint") {
    setSetpoint(args[2]);
  } else {
    printUnsupportedSubcommand(args[1]);
  }
  return false;
}

const char* TemperatureCmd::getkey() { return "temperature"; }

const char* TemperatureCmd::getlong() {
  return "  syntax:  temperature [setpoint <value>]\n"
         "\n"
         "  description:\n"
         "    To GET the current temperature, just enter 'temperature'.\n"
         "    To SET the set-point for triggering a temperature \n"
         "    alert, enter 'temperature setpoint <value>.\n"
         "    The temperature values are in Celcius.\n"
         "       'value' is an integer in the range of [0..100] (Celcius).\n"
         "\n"
         "  examples:\n"
         "    tev-cli> temperature              ### displays temperature and alert status\n"
         "    tev-cli> temperature setpoint 40  ### sets the temperature alarm threshold to 40\n";
}

const char* TemperatureCmd::getshort() { return "get/set temperature configuration"; }
