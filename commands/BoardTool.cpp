#include "commands/BoardTool.h"

#include "platform/shellQuote.h"

#include <cstdlib>

namespace {

constexpr size_t commandLineMax = 127;

} // namespace

bool runBoardTool(const std::string& tool) { return std::system(tool.c_str()) >= 0; }

bool runBoardTool(const std::string& tool, const std::string& word) {
  if (tool.size() + 1 + word.size() > commandLineMax) return false;
  return runBoardTool(tool + " " + krShellQuote(word.c_str()));
}
