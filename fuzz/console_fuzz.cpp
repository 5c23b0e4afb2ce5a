// Console lines through splitter, registry and the real commands, on an appliance whose nodes hold anything and whose
// services answer anything. What the loop itself prints is predicted to the byte; what reaches the services and the
// board tools keeps its form.
#include "fuzz/Check.h"
#include "fuzz/StandIns.h"

#include "messaging/CommObj.h"
#include "messaging/MsgObj.h"
#include "shell/CmdMap.h"
#include "shell/Shell.h"

#include <algorithm>
#include <fcntl.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <iostream>
#include <sstream>
#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr char toolFolder[] = "/mnt/tev/sys/bin/";

class Quiet : public CmdFunctor {
public:
  bool operator()(const ArgVec&) override { return false; }
  const char* getkey() override { return "exit"; }
  const char* getlong() override { return ""; }
  const char* getshort() override { return ""; }
};

class Appliance : public StandIns {
public:
  Appliance(FuzzedDataProvider& data, std::string nodeText) : _data(data), _nodeText(std::move(nodeText)) {}

  int sent(int queue, long, const std::string& text) override {
    FUZZ_CHECK(queue == 98307 || queue == 229383 || queue == 0);
    FUZZ_CHECK(text.size() >= 16 && text.size() <= 28 && text.size() % 4 == 0);
    _waiting = true;
    return 0;
  }

  void arrive() override {
    if (!_waiting) return;
    _waiting = false;
    const std::string reply = _data.ConsumeRandomLengthString(64);
    intoPipe(reply.data(), reply.size());
  }

  int openNode(const char*, int) override {
    if (_nodeText == "missing") return StandIns::openNode(nullptr, 0);
    const int fd = memfd_create("node", MFD_CLOEXEC);
    FUZZ_CHECK(fd > 0 && write(fd, _nodeText.data(), _nodeText.size()) >= 0 && lseek(fd, 0, SEEK_SET) == 0);
    return fd;
  }

  int run(const char* commandLine) override {
    const std::string line = commandLine;
    FUZZ_CHECK(line.rfind(toolFolder, 0) == 0);
    FUZZ_CHECK(line.find_first_of("\n\t") == std::string::npos || line.back() == '\'');
    return _data.ConsumeBool() ? 0 : -1;
  }

private:
  FuzzedDataProvider& _data;
  const std::string _nodeText;
  bool _waiting = false;
};

/// What splitLine must give, said another way.
ArgVec wordsOf(const std::string& line) {
  ArgVec words;
  bool inside = false;
  for (const char c : line) {
    const bool blank = c == ' ' || c == '\t';
    if (!blank && !inside) words.emplace_back();
    if (!blank) words.back() += c;
    inside = !blank;
  }
  return words;
}

/// What the loop must print by itself.
std::string predicted(const std::string& input) {
  std::string out = prompt;
  for (size_t at = 0; at < input.size();) {
    const size_t end = std::min(input.find('\n', at), input.size());
    if (end - at > 127) return out;
    const std::string line = input.substr(at, end - at).c_str(); // a zero byte ends what counts of it
    at = end + 1;
    const ArgVec words = wordsOf(line);
    ArgVec split;
    splitLine(line, split);
    FUZZ_CHECK(split == words);
    if (!words.empty() && gCmdMap.count(words[0]) == 0) out += "command: [" + words[0] + "] is not implemented \n";
    out += prompt;
  }
  return out;
}

void start() {
  tev::initlog("/dev/null");
  tev::log << tev::enable;
  StandIns standIns;
  (void)new CommObj("tCliAppTask"); // the table of tasks keeps it
  initmap();
  static Quiet quiet; // instead of the command that ends the process
  gCmdMap["exit"] = &quiet;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  static const bool started = (start(), true);
  (void)started;
  FuzzedDataProvider data(bytes, size);
  const std::string nodeText = data.ConsumeRandomLengthString(24);
  const std::string lines = data.ConsumeRandomLengthString(2000);
  Appliance appliance(data, nodeText);
  std::istringstream in(lines);
  std::ostringstream out, console;
  auto* const oldOut = std::cout.rdbuf(console.rdbuf());
  auto* const oldErr = std::cerr.rdbuf(console.rdbuf());
  runPromptLoop(in, out);
  std::cout.rdbuf(oldOut);
  std::cerr.rdbuf(oldErr);
  FUZZ_CHECK(out.str() == predicted(lines));
  return 0;
}
