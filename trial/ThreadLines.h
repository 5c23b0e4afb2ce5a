// What the start of the shell's task prints from two threads at any moment.
#ifndef TEV_TRIAL_THREADLINES_H
#define TEV_TRIAL_THREADLINES_H

#include <regex>
#include <string>

namespace trial {

/// A shell's output without it. The thread's own line may also stand in one that the shell has no memory to write in
/// one piece.
inline std::string withoutThreadLines(const std::string& text) {
  static const std::regex ofThread("New thread, tid = [^\n]*\n\n?");
  static const std::regex ofShell("[0-9/]+ [0-9:.]+ \\[[0-9]+\\] krThreadSpawn: Spawned[^\n]*\n\n?|"
                                  "(krThreadSpawn \\w* ss:|krThreadSetPriority: |Thread \\[\\w*\\])[^\n]*\n");
  return std::regex_replace(std::regex_replace(text, ofThread, ""), ofShell, "");
}

} // namespace trial

#endif
