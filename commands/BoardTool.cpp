#include "commands/BoardTool.h"

#include "commands/Console.h"
#include "commands/Report.h"
#include "platform/internal/shellQuote.h"

#include <cstdlib>

namespace {

constexpr size_t commandLineMax = 127;

bool run(const std::string& tool, const std::string& commandLine) {
  if (!Report::present->toolStarts()) return false;
  const int status = std::system(commandLine.c_str());
  Report::present->toolEnded(tool, status);
  (void)waitForConsole(); // the tool had the same console, and may have left it non-blocking
  return status >= 0;
}

} // namespace

bool runBoardTool(const std::string& tool) { return run(tool, tool); }

bool runBoardTool(const std::string& tool, const std::string& word) {
  if (tool.size() + 1 + word.size() > commandLineMax) {
    Report::present->wrongWords();
    return false;
  }
  return run(tool, tool + " " + krShellQuote(word.c_str()));
}
