// The board: its nodes, what stands behind them, and what its log tells. How the nodes come to be files is the business
// of a NodeServer.
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

/// One attribute file with the manners of sysfs.
struct BoardNode {
  std::string path;
  mode_t mode;            // permission bits; a node without write bits refuses to be opened for writing by anyone
  std::string text;       // what a read gives
  bool binary = false;    // fixed size, and the position in the file counts
  bool failWrite = false; // each write fails with EIO
  std::function<int(std::string_view)> store = nullptr; // puts a text into what stands behind the node; 0 or errno
  std::function<std::string()> show = nullptr;          // the driver's text; without it, `text` is all there is
  std::string shown = {};                               // what `show` gave last
};

/// A message that has reached a service task.
struct ServiceMessage {
  std::string task;
  uint16_t id;        // protocol::MessageId
  std::string name;   // of its class, for the log
  std::string source; // the task it comes from, or that one's number
  std::string flags;  // "sync remote", or less
  Payload payload;
};

/// What the service task has to do about it.
struct ServiceReply {
  Payload payload; // of the reply; none if nothing answers
  ServiceFault fault;
  bool logging; // whether it tells of this in its own log
};

class Board {
public:
  struct Setup {
    Faults faults;
    bool frozen = false; // the temperature stays where it is
    bool logReads = false;
    std::string snapshotDirectory = snapshotPath;
  };

  /// `log` must outlive the board.
  Board(const Setup& setup, BoardLog& log);
  Board(const Board&) = delete; // the nodes' operations point to the board
  Board& operator=(const Board&) = delete;

  /// The nodes that exist, in a fixed order. An index into them names a node in the calls below.
  const std::vector<BoardNode>& nodes() const { return _nodes; }

  /// Opens a node with the access mode and flags of open(2): 0, or EACCES where the node's mode forbids it.
  [[nodiscard]] int open(size_t node, int flags);
  /// At most `size` bytes from position `offset` on.
  std::string_view read(size_t node, size_t offset, size_t size);
  /// One write(2): what it returns, or a negative errno. The log line is complete when this returns.
  [[nodiscard]] ssize_t write(size_t node, size_t offset, std::string_view bytes);

  /// A board tool starts with these arguments. What it has to do is told by the result: "ok", "fail", "silent".
  std::string runTool(std::string_view name, const std::vector<std::string>& arguments);

  /// A message has reached a service task, and its reply is about to leave.
  ServiceReply receive(const ServiceMessage& message);

  /// Lets time pass for the model.
  void advance(double seconds);

  /// One line `PATH "text"` per node.
  std::string dump() const;

  /// The board as a table of lines of at most 79 characters: what is set, snapshots, messages, nodes.
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
  std::deque<std::string> _messages;       // the latest first
  unsigned _restarts = 0;
  std::array<unsigned, 256> _switchRegisters = {};
  std::vector<BoardNode> _nodes;
  bool _indicator = false; // the streaming line
  unsigned _stream = 0;    // what the indicator last followed
  bool _alert = false;
  bool _vlanMode = false;
};

} // namespace sim

#endif
