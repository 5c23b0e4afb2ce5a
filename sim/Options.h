// The command line of tev-sim.
#ifndef TEV_SIM_OPTIONS_H
#define TEV_SIM_OPTIONS_H

#include "sim/Board.h"

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
  std::string snapshots; // empty: only the board's own
  std::string services;  // the program of the service tasks; empty: the one from the build tree
  bool logTimes = false;
  bool probe = false;
  bool status = false; // look at a board that runs
  bool watch = false;  // and go on looking
  int pid = 0;         // of that board, or of its tev-sim; 0: the only one there is
  bool help = false;
  std::vector<std::string> command; // empty: the shell from the build tree
};

/// The options in `words` (without the program's name), or a line that says what is wrong with them.
[[nodiscard]] std::variant<Options, std::string> parseOptions(const std::vector<std::string>& words);

/// The text of --help.
extern const char* const helpText;

} // namespace sim

#endif
