// The board: its nodes, the model behind them, and the events in its log. A NodeServer makes the nodes appear as files.
#ifndef TEV_SIM_BOARD_H
#define TEV_SIM_BOARD_H

#include "sim/Appliance.h"
#include "sim/BoardLog.h"
#include "sim/Faults.h"
#include "sim/ThermalModel.h"

#include <array>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace sim {

inline constexpr char toolDirectory[] = "/mnt/tev/sys/bin/";
inline constexpr std::array<const char*, 4> toolNames = {"eeprom-read-macs-arm-none", "eeprom-write-macs-arm-none",
                                                         "eeprom-read-serialnum-arm-none",
                                                         "eeprom-write-serialnum-arm-none"};
inline constexpr char eepromNode[] = "/sys/bus/i2c/devices/1-0050/eeprom";

/// The paths of all nodes and tools of the board.
const std::vector<std::string>& boardPaths();

/// One attribute file that behaves as in sysfs.
struct BoardNode {
  std::string path;
  mode_t mode;            // permission bits; without write bits not even root can open the node for writing
  std::string text;       // what a read returns
  bool binary = false;    // fixed size; writes go to their file offset
  bool failWrite = false; // each write fails with EIO
  std::function<int(std::string_view)> store = nullptr; // passes a written text to the model; returns 0 or errno
  std::function<std::string()> show = nullptr;          // returns the driver's text; null: only writes change `text`
  std::string shown = {};                               // what `show` returned last
};

/// A message that a service task received.
struct ServiceMessage {
  std::string task;
  uint16_t id;        // protocol::MessageId
  std::string name;   // of its class, for the log
  std::string source; // the sending task's name, or its id
  std::string flags;  // "sync remote", either of them, or empty
  Payload payload;
};

/// How the service task must handle it.
struct ServiceReply {
  Payload payload; // of the reply; empty: send no reply
  ServiceFault fault;
  bool logging; // whether the task writes to its own log
};

class Board {
public:
  struct Setup {
    Faults faults;
    bool frozen = false; // the temperature does not change
    bool logReads = false;
    std::string snapshotDirectory = snapshotPath;
  };

  /// `log` must outlive the board.
  Board(const Setup& setup, BoardLog& log);
  Board(const Board&) = delete; // the nodes' operations hold a pointer to the board
  Board& operator=(const Board&) = delete;

  /// The existing nodes in a fixed order. The calls below take an index into them.
  const std::vector<BoardNode>& nodes() const { return _nodes; }

  /// Opens a node with the access mode and flags of open(2). Returns 0, or EACCES if the node's mode forbids it.
  [[nodiscard]] int open(size_t node, int flags);
  /// Returns up to `size` bytes from `offset`. Valid until the next call.
  std::string_view read(size_t node, size_t offset, size_t size);
  /// Acts as one write(2). Returns the number of bytes accepted, or a negative errno. The log line is
  /// complete when it returns.
  [[nodiscard]] ssize_t write(size_t node, size_t offset, std::string_view bytes);

  /// Logs that a board tool starts with these arguments. Returns what it must do: "ok", "fail" or "silent".
  std::string runTool(std::string_view name, const std::vector<std::string>& arguments);

  /// Handles and logs a message to a service task, and its reply.
  ServiceReply receive(const ServiceMessage& message);

  /// Advances the model by `seconds`.
  void advance(double seconds);

  /// Returns one line `PATH "text"` per node.
  std::string dump() const;

  /// Returns a table with lines of at most 79 characters: settings, services, snapshots, messages, nodes.
  std::string status() const;

private:
  struct Traffic {
    unsigned messages = 0;
    std::string lastStatus = "-";
  };

  void addThermalNodes();
  void addOtherNodes();
  void applyFaults();
  void refresh();
  int storeSwitchCommands(std::string_view text);
  ServiceFault faultOf(const std::string& task) const;
  void restart(Restart kind);

  Setup _setup;
  BoardLog& _log;
  ThermalModel _thermal;
  Appliance _appliance;
  FaultDice _dice;
  std::map<std::string, Traffic> _traffic; // by the task's name
  std::deque<std::string> _messages;       // latest first
  unsigned _restarts = 0;
  std::array<unsigned, 256> _switchRegisters = {};
  std::vector<BoardNode> _nodes;
  bool _indicator = false; // the streaming indicator's GPIO line
  unsigned _stream = 0;    // the appliance's stream when the indicator was last set
  bool _alert = false;
  bool _vlanMode = false;
};

} // namespace sim

#endif
