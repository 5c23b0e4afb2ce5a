// A look at a running board from another terminal.
#ifndef TEV_SIM_STATUSVIEW_H
#define TEV_SIM_STATUSVIEW_H

#include <sys/types.h>

namespace sim {

/// Prints the board that belongs to the process `pid`, or with 0 the only one that runs, as a table on standard output.
/// With `watch` again and again, until the board ends or a signal ends this process. Returns the exit status: 0, or 1
/// with a reason on standard error. Throws std::runtime_error.
[[nodiscard]] int showStatus(pid_t pid, bool watch);

} // namespace sim

#endif
