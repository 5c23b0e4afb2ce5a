#include "shell/Shell.h"

#include "commands/Console.h"
#include "commands/Words.h"
#include "shell/CmdMap.h"

#include <exception>
#include <iostream>

const char* const prompt = "tev-cli> ";
CmdHistory history;

namespace {

constexpr std::streamsize lineBufferSize = 128; // 127 characters and the terminator

// Looks word 0 up and calls its command; true asks for the line to be remembered.
bool runCommand(const ArgVec& words, std::ostream& out) {
  const auto found = gCmdMap.find(words.front());
  if (found == gCmdMap.end()) {
    printLine(out, "command: [" + words.front() + "] is not implemented ");
    return false;
  }
  return (*found->second)(words);
}

// Runs the line in `buffer`, or the remembered one if that is empty.
void runLine(const char* buffer, ArgVec& words, std::ostream& out) {
  try {
    const std::string line = buffer[0] != '\0' ? buffer : history.last();
    splitLine(line, words);
    if (!words.empty() && runCommand(words, out)) history.add(line);
  } catch (const std::exception& failure) { // out of memory, in practice: the line is lost, the shell is not
    std::cerr << "error: " << failure.what() << std::endl;
  }
}

} // namespace

void runPromptLoop(std::istream& in, std::ostream& out) {
  char buffer[lineBufferSize] = {};
  ArgVec words;
  print(out, prompt);
  while (in.getline(buffer, lineBufferSize)) {
    runLine(buffer, words, out);
    print(out, prompt);
  }
}
