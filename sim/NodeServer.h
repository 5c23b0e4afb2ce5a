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
  /// Call when the board changed of its own accord.
  virtual void publish() = 0;
};

/// Mounts a file system of our own over /sys: each write(2) is one call of Board::write, and reads give the current
/// text. `board` must outlive the server. Throws std::runtime_error where the machine refuses it; a machine without the
/// library always does.
std::unique_ptr<NodeServer> makeFuseNodes(Board& board);

/// Lays plain files on a memory file system over /sys and watches them. What a node was given is seen only when the
/// writer closes it. A text that is shorter than the one before leaves the tail of that, several writes look like one,
/// and a write of the text that is there already is not seen. Throws std::runtime_error like the above, and for boards
/// with a node that fails writes, which plain files cannot.
std::unique_ptr<NodeServer> makeFileNodes(Board& board);

} // namespace sim

#endif
