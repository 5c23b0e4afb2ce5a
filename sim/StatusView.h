// Printing a running board on another terminal.
#ifndef TEV_SIM_STATUSVIEW_H
#define TEV_SIM_STATUSVIEW_H

#include <sys/types.h>

namespace sim {

/// Prints a board as a table on standard output: the board of the process `pid`, or for 0 the only one that runs. With
/// `watch` it repeats that until the board ends or a signal ends this process. Returns the exit status: 0, or 1 after
/// it has reported the reason on standard error. Throws std::runtime_error.
[[nodiscard]] int showStatus(pid_t pid, bool watch);

} // namespace sim

#endif
