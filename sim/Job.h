// tev-sim's process as the shell that started it sees it: it stops, goes on and ends when the command does.
#ifndef TEV_SIM_JOB_H
#define TEV_SIM_JOB_H

#include <sys/types.h>

namespace sim {

/// Waits for the board process `board` to end and returns its exit status (128 + n if signal n killed it). Meanwhile
/// signals that were sent to this process go to the board over `channel` as one int each, which passes them on to the
/// command; an int from the board tells that the command was stopped by that signal, and this process stops as well.
/// What the terminal sends (Ctrl-C, Ctrl-Z) reaches the command by itself, for all of us are one process group. All
/// signals must be blocked.
[[nodiscard]] int waitForBoard(pid_t board, int channel);

} // namespace sim

#endif
