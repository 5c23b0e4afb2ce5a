// Running a board tool.
#ifndef TEV_COMMANDS_BOARDTOOL_H
#define TEV_COMMANDS_BOARDTOOL_H

#include <cstddef>
#include <string>

/// Runs `tool`, the path of a board tool, through the system shell, with the console as its standard streams, and waits
/// for its end. Returns false if it could not be run at all; the tool's own exit status is only reported (Report.h).
[[nodiscard]] bool runBoardTool(const std::string& tool);

/// The same with `word` as the tool's only argument, exactly as typed, with any characters. A command line of
/// more than 127 characters (the word's own quoting not counted) is refused: nothing runs and the result is false.
[[nodiscard]] bool runBoardTool(const std::string& tool, const std::string& word);

#endif
