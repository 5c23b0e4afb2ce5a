// tev-sim's process as a job of the calling shell: it stops, continues and ends with the command.
#ifndef TEV_SIM_JOB_H
#define TEV_SIM_JOB_H

#include <sys/types.h>

namespace sim {

/// Waits until the board's process `board` ends and returns its exit status (128 + n if signal n killed it). Meanwhile
/// it forwards each signal to this process over `channel`, as one int; the board sends it to the command. An int from
/// the board is the signal that stopped the command; this process then stops, too. The terminal's own signals (Ctrl-C,
/// Ctrl-Z) are not forwarded: the command is in the same process group and gets them directly. The caller must block
/// all signals. Throws std::runtime_error.
[[nodiscard]] int waitForBoard(pid_t board, int channel);

} // namespace sim

#endif
