// Console lines through splitter, registry and the real commands, on an appliance whose nodes hold anything and whose
// services reply with any bytes, in any pieces between any two calls. What the loop itself prints is predicted to the
// byte; what reaches the services and the board tools keeps its form, and replies are read as the protocol says.
#include "fuzz/FuzzedAppliance.h"

#include "commands/Words.h"
#include "log/tevlog.h"
#include "messaging/CommObj.h"
#include "messaging/Protocol.h"
#include "shell/CmdMap.h"
#include "shell/Shell.h"

#include <iostream>
#include <sstream>

namespace {

/// What the loop must print by itself.
std::string predicted(const std::string& input) {
  std::string out = prompt;
  for (size_t at = 0; at < input.size();) {
    const size_t end = std::min(input.find('\n', at), input.size());
    if (end - at > 127) return out;
    const std::string line = input.substr(at, end - at).c_str(); // a zero byte ends what counts of it
    at = end + 1;
    ArgVec words;
    splitLine(line, words);
    if (!words.empty() && gCmdMap.count(words[0]) == 0) out += "command: [" + words[0] + "] is not implemented \n";
    out += prompt;
  }
  return out;
}

} // namespace

static void start() {
  tev::initlog("/dev/null");
  tev::log << tev::enable;
  Input none(nullptr, 0);
  FuzzedAppliance appliance(none, "");
  (void)new CommObj(protocol::consoleTask); // the table of tasks keeps it
  initmap();
  gCmdMap.erase("exit"); // which ends the process
}

static void fuzz(Input& in) {
  FuzzedAppliance appliance(in, in.bytes(24));
  const std::string lines = in.bytes(2000);
  std::istringstream input(lines);
  std::ostringstream out, console;
  auto* const oldOut = std::cout.rdbuf(console.rdbuf());
  auto* const oldErr = std::cerr.rdbuf(console.rdbuf());
  runPromptLoop(input, out);
  std::cout.rdbuf(oldOut);
  std::cerr.rdbuf(oldErr);
  FUZZ_CHECK(out.str() == predicted(lines));
}
