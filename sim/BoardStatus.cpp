// The board as a table.
#include "sim/Board.h"
#include "sim/Quoting.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

namespace sim {

namespace {

constexpr size_t snapshotsShown = 4;
constexpr size_t tableWidth = 79; // some terminals wrap after the 80th character

// One line of the table.
[[gnu::format(printf, 1, 2)]] std::string row(const char* format, ...) {
  char text[512];
  va_list arguments;
  va_start(arguments, format);
  (void)std::vsnprintf(text, sizeof text, format, arguments); // longer lines are cut below
  va_end(arguments);
  std::string line = text;
  line.erase(line.find_last_not_of(' ') + 1);
  if (line.size() > tableWidth) line.replace(tableWidth - 3, line.npos, "...");
  return line + "\n";
}

std::string rule() { return std::string(tableWidth, '-') + "\n"; }

// One line with two settings.
std::string pair(const char* left, const std::string& value, const char* right, const std::string& other) {
  return row("%-13s %-30s %-12s %s", left, value.c_str(), right, other.c_str());
}

} // namespace

std::string Board::status() const {
  const int set = _thermal.setPoint() + ThermalModel::rawOffset;
  const int celsius = _thermal.temperature() + ThermalModel::rawOffset;
  const std::string fan = std::to_string(_thermal.fan()) + " of " + std::to_string(ThermalModel::maxFan) + ", " +
                          std::to_string(_thermal.rpm()) + " rpm";
  std::string text;
  text += pair("temperature", std::to_string(celsius) + " C", "stream", _appliance.streamText());
  text += pair("alert", std::string(_alert ? "on" : "off") + ", from " + std::to_string(set) + " C on", "format",
               _appliance.format());
  text += pair("fan", fan, "resolution", _appliance.resolution().text());
  text += pair("vlan mode", _vlanMode ? "on" : "off", "audio", _appliance.audioSource());
  text += pair("firmware", firmwareVersion + std::string(", restarts: ") + std::to_string(_restarts), "logging",
               _appliance.logging() ? "on" : "off");
  text += rule() + row("%-16s %9s %9s %12s  %s", "service", "queue", "messages", "last status", "fault");
  for (const ServiceTask& task : serviceTasks) {
    const auto found = _traffic.find(task.name);
    const Traffic traffic = found != _traffic.end() ? found->second : Traffic();
    std::string fault = faultOf(task.name).text();
    if (fault == "none" && _dice.percent() > 0) fault = std::to_string(_dice.percent()) + " % at random";
    text += row("%-16s %9d %9u %12s  %s", task.name, task.queueId, traffic.messages, traffic.lastStatus.c_str(),
                fault.c_str());
  }
  text += rule();
  const std::vector<Snapshot>& snapshots = _appliance.snapshots();
  for (size_t i = 0; i < std::min(snapshots.size(), snapshotsShown); ++i)
    text += row("%.8s snapshot slot %u %s", snapshots[i].time.c_str(), snapshots[i].slot, snapshots[i].size.c_str());
  if (snapshots.empty()) text += "no snapshots\n";
  text += rule();
  for (const std::string& message : _messages)
    text += row("%s", message.c_str());
  if (_messages.empty()) text += "no messages\n";
  text += rule();
  for (const BoardNode& node : _nodes)
    text += row("%-42s %s", node.path.c_str(), quoted(node.text).substr(0, tableWidth).c_str());
  return text;
}

} // namespace sim
