#include "sim/Board.h"

#include "sim/Eeprom.h"
#include "sim/Quoting.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <optional>

namespace sim {

namespace {

constexpr size_t pageSize = 4096; // the most that sysfs accepts in one write
constexpr unsigned vlanRegister = 0x05;
constexpr unsigned vlanModeBit = 0x80;
constexpr size_t messagesKept = 8;

// Returns the number at the start of a text, as drivers parse it.
std::optional<int> numberIn(std::string_view text) {
  const std::string terminated(text);
  char* end = nullptr;
  const long value = std::strtol(terminated.c_str(), &end, 10);
  if (end == terminated.c_str()) return std::nullopt;
  return static_cast<int>(std::clamp(value, -100000L, 100000L));
}

// Returns a driver's store operation that passes a number to `set`.
template <class Setter>
std::function<int(std::string_view)> storeNumber(Setter set) {
  return [set](std::string_view text) {
    const std::optional<int> number = numberIn(text);
    if (!number) return EINVAL;
    set(*number);
    return 0;
  };
}

std::string line(int number) { return std::to_string(number) + "\n"; }

std::string hexByte(unsigned value) {
  char text[8];
  (void)std::snprintf(text, sizeof text, "%02x\n", value & 0xffU);
  return text;
}

} // namespace

const std::vector<std::string>& boardPaths() {
  static const std::vector<std::string> paths = [] {
    BoardLog unused;
    const Board board({}, unused);
    std::vector<std::string> all;
    for (const BoardNode& node : board.nodes())
      all.push_back(node.path);
    for (const char* tool : toolNames)
      all.push_back(std::string(toolDirectory) + tool);
    return all;
  }();
  return paths;
}

Board::Board(const Setup& setup, BoardLog& log)
    : _setup(setup), _log(log), _appliance(log, setup.snapshotDirectory), _dice(setup.faults.dice) {
  addThermalNodes();
  addOtherNodes();
  for (BoardNode& node : _nodes) {
    if (node.show) node.text = node.shown = node.show();
  }
  applyFaults();
}

void Board::addThermalNodes() {
  const std::string chip = "/sys/bus/i2c/devices/1-004c/";
  BoardNode temperature{chip + "temperature", 0444, ""};
  temperature.store = storeNumber([this](int raw) { _thermal.setTemperature(raw); });
  temperature.show = [this] { return line(_thermal.temperature()); };
  BoardNode setPoint{chip + "setpoint", 0644, ""};
  setPoint.store = storeNumber([this](int raw) { _thermal.setSetPoint(raw); });
  setPoint.show = [this] { return line(_thermal.setPoint()); };
  BoardNode speed{chip + "speed", 0644, ""};
  speed.store = storeNumber([this](int setting) { _thermal.setFan(setting); });
  speed.show = [this] { return line(_thermal.fan()); };
  BoardNode low{chip + "tachcount_lsb", 0444, ""};
  low.show = [this] { return hexByte(static_cast<unsigned>(_thermal.tachCount())); };
  BoardNode high{chip + "tachcount_msb", 0444, ""};
  high.show = [this] { return hexByte(static_cast<unsigned>(_thermal.tachCount()) >> 8U); };
  BoardNode alert{"/sys/class/gpio/gpio27/value", 0444, ""};
  alert.show = [this] { return _thermal.alert() ? "0\n" : "1\n"; }; // active low
  for (BoardNode* node : {&temperature, &setPoint, &speed, &low, &high, &alert})
    _nodes.push_back(std::move(*node));
}

void Board::addOtherNodes() {
  BoardNode streaming{"/sys/class/gpio/gpio26/value", 0644, ""};
  streaming.store = [this](std::string_view text) {
    if (text.empty() || (text[0] != '0' && text[0] != '1')) return EINVAL;
    _indicator = text[0] == '1';
    return 0;
  };
  streaming.show = [this] { return _indicator ? "1\n" : "0\n"; };
  _nodes.push_back(std::move(streaming));
  BoardNode format{"/sys/bus/i2c/devices/2-0020/format", 0444, ""};
  format.show = [this] { return std::string(_appliance.format()) + "\n"; };
  _nodes.push_back(std::move(format));
  BoardNode smi{"/sys/module/ksz8864/drivers/smi", 0600, ""};
  smi.store = [this](std::string_view text) { return storeSwitchCommands(text); };
  smi.show = [this] {
    char text[32];
    (void)std::snprintf(text, sizeof text, "0x%02x 0x%02x\n", vlanRegister, _switchRegisters[vlanRegister]);
    return std::string(text);
  };
  _nodes.push_back(std::move(smi));
  BoardNode identity{eepromNode, 0600, eeprom::factoryContents()};
  identity.binary = true;
  _nodes.push_back(std::move(identity));
}

// An initial text also sets the model if the model accepts it. Reads return it unchanged until the model's text
// changes.
void Board::applyFaults() {
  const Faults& faults = _setup.faults;
  for (BoardNode& node : _nodes) {
    const auto first = faults.firstTexts.find(node.path);
    if (first == faults.firstTexts.end()) continue;
    node.text = first->second;
    if (node.binary) node.text.resize(eeprom::size, '\0');
    if (node.store) (void)node.store(node.text); // a test may want a text that the model rejects
    if (node.show) node.shown = node.show();
  }
  _alert = _thermal.alert();
  refresh();
  for (BoardNode& node : _nodes) {
    if (faults.readOnly.count(node.path) > 0) node.mode &= ~mode_t{0222};
    node.failWrite = faults.failWrite.count(node.path) > 0;
  }
  const auto missing = [&](const BoardNode& node) { return faults.missing.count(node.path) > 0; };
  _nodes.erase(std::remove_if(_nodes.begin(), _nodes.end(), missing), _nodes.end());
}

// Updates the nodes' texts from the model and logs what has changed.
void Board::refresh() {
  if (_appliance.stream() != _stream) {
    _stream = _appliance.stream();
    _indicator = _stream != 0;
    _log.add(std::string("stream ") + _appliance.streamText());
  }
  for (BoardNode& node : _nodes) {
    if (!node.show) continue;
    std::string text = node.show();
    if (text != node.shown) node.text = node.shown = std::move(text);
  }
  if (_thermal.alert() != _alert) {
    _alert = !_alert;
    _log.add(_alert ? "alert on" : "alert off");
  }
  if (((_switchRegisters[vlanRegister] & vlanModeBit) != 0) != _vlanMode) {
    _vlanMode = !_vlanMode;
    _log.add(_vlanMode ? "vlan mode on" : "vlan mode off");
  }
}

// With plain files several writes arrive as one, so a text may hold several commands.
int Board::storeSwitchCommands(std::string_view text) {
  constexpr std::string_view verb = "write ";
  for (size_t at = 0; at < text.size();) {
    const size_t next = std::min(text.find(verb, at + 1), text.size());
    const std::string command(text.substr(at, next - at));
    unsigned reg = 0;
    unsigned value = 0;
    int entry[4] = {};
    if (std::sscanf(command.c_str(), "write 0x%x 0x%x", &reg, &value) == 2 && reg < _switchRegisters.size()) {
      _switchRegisters[reg] = value & 0xffU;
    } else if (std::sscanf(command.c_str(), "write vlan %d %d %d %d", &entry[0], &entry[1], &entry[2], &entry[3]) !=
               4) {
      return EINVAL;
    }
    at = next;
  }
  return 0;
}

int Board::open(size_t index, int flags) {
  const BoardNode& node = _nodes[index];
  const int access = flags & O_ACCMODE;
  // Permission bits do not stop root, but sysfs still refuses an access for which the driver has no operation.
  const bool refused = access != O_RDONLY && (node.mode & 0222U) == 0;
  if (_setup.logReads || refused) {
    const char* names[] = {"O_RDONLY", "O_WRONLY", "O_RDWR"};
    _log.add("open " + node.path + " " + names[access % 3] + (refused ? " -> EACCES" : ""));
  }
  return refused ? EACCES : 0;
}

std::string_view Board::read(size_t index, size_t offset, size_t size) {
  const BoardNode& node = _nodes[index];
  const std::string_view text = std::string_view(node.text).substr(std::min(offset, node.text.size()), size);
  if (_setup.logReads && !text.empty()) _log.add("read " + node.path + " " + quoted(text));
  return text;
}

ssize_t Board::write(size_t index, size_t offset, std::string_view bytes) {
  BoardNode& node = _nodes[index];
  bytes = bytes.substr(0, pageSize);
  int error = 0;
  if (node.failWrite) {
    error = EIO;
  } else if ((node.mode & 0222U) == 0) {
    error = EACCES; // with plain files root could open it for writing
  } else if (node.binary && offset >= node.text.size()) {
    error = EFBIG;
  } else if (node.binary) {
    bytes = bytes.substr(0, node.text.size() - offset);
  }
  std::string line = "write " + node.path;
  if (node.binary) line += " @" + std::to_string(offset);
  line += " " + quoted(bytes);
  if (error == 0 && node.binary) {
    node.text.replace(offset, bytes.size(), bytes);
  } else if (error == 0 && node.store) {
    error = node.store(bytes);
  }
  if (error != 0) line += std::string(" -> ") + strerrorname_np(error);
  _log.add(line);
  if (error != 0) return -error;
  if (node.show) node.text = node.shown = node.show();
  refresh();
  return static_cast<ssize_t>(bytes.size());
}

std::string Board::runTool(std::string_view name, const std::vector<std::string>& arguments) {
  std::string line = "tool " + std::string(name);
  for (const std::string& argument : arguments)
    line += " " + quoted(argument);
  const auto fault = _setup.faults.tools.find(std::string(name));
  const char* outcome = "ok";
  if (fault != _setup.faults.tools.end()) outcome = fault->second == ToolFault::fail ? "fail" : "silent";
  if (fault != _setup.faults.tools.end()) line += std::string(" -> ") + outcome;
  _log.add(line);
  return outcome;
}

ServiceFault Board::faultOf(const std::string& task) const {
  const auto fault = _setup.faults.services.find(task);
  return fault != _setup.faults.services.end() ? fault->second : ServiceFault();
}

ServiceReply Board::receive(const ServiceMessage& message) {
  const std::string payload = textOf(message.payload);
  _log.add("message " + message.task + " " + message.name + " from " + message.source +
           (message.flags.empty() ? "" : " " + message.flags) + payload);
  ServiceReply reply{_appliance.serve(message.task, message.id, message.payload), {}, _appliance.logging()};
  refresh();
  Traffic& traffic = _traffic[message.task];
  ++traffic.messages;
  std::string summary = message.task + " " + message.name.substr(0, message.name.rfind("ReqMsg")) + payload;
  if (!reply.payload.empty()) {
    reply.fault = faultOf(message.task);
    if (reply.fault.kind == ServiceFault::full) reply.fault = {}; // the task was continued, so it replies
    if (reply.fault.kind == ServiceFault::none) reply.fault = _dice.roll();
    const std::string fault = reply.fault.kind == ServiceFault::none ? "" : " -> " + reply.fault.text();
    const std::string name = message.name.substr(0, message.name.rfind("Req")) + "RespMsg";
    _log.add("reply " + message.task + " " + name + textOf(reply.payload) + fault);
    traffic.lastStatus = std::to_string(reply.payload[0].value);
    summary += " = " + traffic.lastStatus + fault;
  }
  _messages.push_front(timeOfDay().substr(0, 8) + " " + summary);
  if (_messages.size() > messagesKept) _messages.pop_back();
  restart(_appliance.takeRestart());
  return reply;
}

void Board::restart(Restart kind) {
  if (kind == Restart::none) return;
  if (kind == Restart::configuration) {
    _log.add("configuration restored");
    _appliance.restoreDefaults();
    _thermal.setFan(ThermalModel::defaultFan);
    _thermal.setSetPoint(ThermalModel::defaultSetPoint);
    _switchRegisters = {};
  }
  if (kind == Restart::firmware) _log.add(std::string("firmware ") + firmwareVersion + " restored");
  _appliance.stopStream();
  refresh();
  ++_restarts;
  _log.add("restart");
}

void Board::advance(double seconds) {
  if (_setup.frozen) return;
  _thermal.advance(seconds);
  refresh();
}

std::string Board::dump() const {
  std::string out;
  for (const BoardNode& node : _nodes)
    out += node.path + " " + quoted(node.text) + "\n";
  return out;
}

} // namespace sim
