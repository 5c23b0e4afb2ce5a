#include "trial/ThreadLines.h"

#include <regex>

namespace trial {

std::string withoutThreadLines(std::string text) {
  static const std::regex ofThread("New thread, tid = [^\n]*\n\n");
  // A task without a queue has no name.
  static const std::regex ofShell(
      "[0-9/]+ [0-9:.]+ \\[[0-9]+\\] krThreadSpawn: Spawned Thread \\[(tCliAppTask)?\\][^\n]*\n\n|"
      "(krThreadSpawn (tCliAppTask)? ss:|krThreadSetPriority: |Thread \\[(tCliAppTask)?\\])[^\n]*\n");
  if (text.find("hread") == text.npos) return text;
  return std::regex_replace(std::regex_replace(text, ofThread, ""), ofShell, "");
}

} // namespace trial
