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
  /// Handles all pending requests. Does not block.
  virtual void serve() = 0;
};

/// Mounts a FUSE file system over /sys: each write(2) is one call of Board::write, and a read returns the present text.
/// `board` must outlive the server. Throws std::runtime_error if the machine refuses the mount or this program was
/// built without the library.
std::unique_ptr<NodeServer> makeFuseNodes(Board& board);

/// Creates plain files in a memory file system over /sys. All writes to an open node reach the board as one write when
/// the writer closes it; a node that is open for writing reads as empty; no write fails, and root can open every node.
/// `board` must outlive the server. Throws std::runtime_error if the machine refuses it.
std::unique_ptr<NodeServer> makeFileNodes(Board& board);

} // namespace sim

#endif
