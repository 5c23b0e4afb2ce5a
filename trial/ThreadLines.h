// What the start of the shell's task prints from two threads at any moment.
#ifndef TEV_TRIAL_THREADLINES_H
#define TEV_TRIAL_THREADLINES_H

#include <string>

namespace trial {

/// A shell's output without it. The thread's own line may also stand in one that the shell has no memory to write in
/// one piece.
std::string withoutThreadLines(std::string text);

} // namespace trial

#endif
