// The process that is the board: the first one in its own namespaces.
#ifndef TEV_SIM_BOARDPROCESS_H
#define TEV_SIM_BOARDPROCESS_H

#include "platform/Descriptor.h"
#include "sim/Options.h"

#include <csignal>

namespace sim {

/// What the board process has from the one that made it.
struct BoardInputs {
  kr::Descriptor channel;   // to waitForBoard()
  kr::Descriptor log;       // may be none
  kr::Descriptor dump;      // may be none
  sigset_t signalMask = {}; // for the command
  bool closed[3] = {};      // which of the command's standard streams were closed
};

/// Sets the board up, runs the command on it and returns the exit status for tev-sim. The caller must be process 1 of
/// a process namespace and have all signals blocked. Throws std::runtime_error when the set-up fails.
[[nodiscard]] int runBoard(const Options& options, BoardInputs inputs);

} // namespace sim

#endif
