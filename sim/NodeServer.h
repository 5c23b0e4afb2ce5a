// Makes the board's nodes appear as files under /sys.
#ifndef TEV_SIM_NODESERVER_H
#define TEV_SIM_NODESERVER_H

#include "sim/Board.h"

#include <memory>

namespace sim {

class NodeServer {
public:
  virtual ~NodeServer() = default;
  /// Becomes readable when serve() has work.
  virtual int descriptor() const = 0;
  /// Handles all that has arrived, without waiting.
  virtual void serve() = 0;
};

/// Mounts a file system of our own over /sys: each write(2) is one call of Board::write, and reads give the current
/// text. `board` must outlive the server. Throws std::runtime_error where the machine refuses it; a machine without the
/// library always does.
std::unique_ptr<NodeServer> makeFuseNodes(Board& board);

/// Lays plain files on a memory file system over /sys. What a node is given is seen only when the writer closes it, as
/// one write however many there were; a node opened for writing reads empty; no write fails, and opening is refused to
/// nobody who is root. Throws std::runtime_error where the machine refuses it.
std::unique_ptr<NodeServer> makeFileNodes(Board& board);

} // namespace sim

#endif
