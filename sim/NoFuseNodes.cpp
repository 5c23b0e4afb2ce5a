// Built where the FUSE library is missing.
#include "sim/NodeServer.h"

#include <stdexcept>

namespace sim {

std::unique_ptr<NodeServer> makeFuseNodes(Board&) { throw std::runtime_error("built without libfuse3"); }

} // namespace sim
