// The command line of tev-sim.
#ifndef TEV_SIM_OPTIONS_H
#define TEV_SIM_OPTIONS_H

#include "sim/Board.h"

#include <map>
#include <string>
#include <variant>
#include <vector>

namespace sim {

enum class NodeKind { any, fuse, files };
enum class Tmp { shared, own, readOnly };

struct Options {
  Board::Setup board;
  NodeKind nodes = NodeKind::any;
  Tmp tmp = Tmp::own;
  std::string logFile; // empty: none
  std::string dumpFile;
  std::string snapshots;                       // empty: in the board's memory only
  std::map<std::string, std::string> services; // programs by the names of tasks; "" for the others
  bool logTimes = false;
  bool inPlace = false; // without namespaces: this machine is the board
  bool probe = false;
  bool status = false; // print a running board
  bool watch = false;  // and repeat it
  int pid = 0;         // of that board or of its tev-sim; 0: the only board
  bool help = false;
  std::vector<std::string> command; // empty: tev-cli from the build tree
};

/// Returns the options in `words` (without the program's name), or a line that describes the error.
[[nodiscard]] std::variant<Options, std::string> parseOptions(const std::vector<std::string>& words);

/// The text of --help.
extern const char* const helpText;

} // namespace sim

#endif
