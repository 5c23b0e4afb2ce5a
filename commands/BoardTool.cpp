#include "commands/BoardTool.h"

#include "commands/Console.h"
#include "platform/internal/shellQuote.h"

#include <cstdlib>

namespace {

constexpr size_t commandLineMax = 127;

} // namespace

bool runBoardTool(const std::string& tool) {
  const bool ran = std::system(tool.c_str()) >= 0;
  (void)waitForConsole(); // the tool had the same console, and may have left it non-blocking
  return ran;
}

bool runBoardTool(const std::string& tool, const std::string& word) {
  if (tool.size() + 1 + word.size() > commandLineMax) return false;
  return runBoardTool(tool + " " + krShellQuote(word.c_str()));
}
