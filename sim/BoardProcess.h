// The board's process: process 1 of its namespaces.
#ifndef TEV_SIM_BOARDPROCESS_H
#define TEV_SIM_BOARDPROCESS_H

#include "platform/Descriptor.h"
#include "sim/Options.h"

#include <csignal>

namespace sim {

/// What the board's process gets from tev-sim's process.
struct BoardInputs {
  kr::Descriptor channel;   // the other end is in waitForBoard()
  kr::Descriptor log;       // optional
  kr::Descriptor dump;      // optional
  sigset_t signalMask = {}; // for the command
  bool closed[3] = {};      // the command's standard streams that are closed
};

/// Sets up the board, runs the command on it and returns the exit status for tev-sim. The caller must be process 1 of
/// a process namespace, except with `inPlace`, and block all signals. Throws std::runtime_error if the set-up fails.
[[nodiscard]] int runBoard(const Options& options, BoardInputs inputs);

} // namespace sim

#endif
