// Console lines through splitter, registry and the real commands, on an appliance whose nodes hold anything and whose
// services reply with any bytes, in any pieces between any two calls. What the loop itself prints is predicted to the
// byte; what reaches the services and the board tools keeps its form, and replies are read as the protocol says.
#include "fuzz/StandIns.h"

#include "commands/Words.h"
#include "log/tevlog.h"
#include "messaging/CommObj.h"
#include "messaging/Protocol.h"
#include "shell/CmdMap.h"
#include "shell/Shell.h"

#include <algorithm>
#include <iostream>
#include <sstream>
#include <sys/mman.h>

namespace {

constexpr char toolFolder[] = "/mnt/tev/sys/bin/";

class FuzzedAppliance : public StandIns {
public:
  FuzzedAppliance(Input& in, std::string nodeText) : _in(in), _nodeText(std::move(nodeText)) {}
  ~FuzzedAppliance() { emptyPipe(); }

  void sent(int queue, long, const std::string& text) override {
    FUZZ_CHECK(queue == protocol::videoQueueId || queue == protocol::streamQueueId || queue == protocol::adminQueueId);
    FUZZ_CHECK(text.size() >= 16 && text.size() <= 28 && text.size() % 4 == 0);
  }

  int poll(pollfd* waits, nfds_t count, int) override {
    _reads = 0;
    arrive();
    return SystemCalls::poll(waits, count, 0);
  }

  ssize_t read(int fd, void* bytes, size_t size) override {
    FUZZ_CHECK(++_reads <= 3); // of a pipe after a wait, or of a node
    arrive();
    return SystemCalls::read(fd, bytes, size);
  }

  int openNode(const char* path) override {
    _reads = 0;
    if (_nodeText == "missing" || _in.number(0, 15) == 15) return StandIns::openNode(path);
    const int fd = memfd_create("node", MFD_CLOEXEC);
    FUZZ_CHECK(fd > 0 && write(fd, _nodeText.data(), _nodeText.size()) >= 0 && lseek(fd, 0, SEEK_SET) == 0);
    return fd;
  }

  int system(const char* commandLine) override {
    const std::string line = commandLine;
    FUZZ_CHECK(line.rfind(toolFolder, 0) == 0);
    const size_t word = std::min(line.find(' '), line.size() - 1) + 1; // quoted, unless nothing in it is special
    FUZZ_CHECK(line.find_first_of(" $&|;<>()`\"'\\*?[#~!{", word) == line.npos ||
               (line[word] == '\'' && line.back() == '\''));
    return _in.once() ? 0 : -1;
  }

private:
  void arrive() {
    if (_in.once()) intoPipe(_in.bytes(64));
  }

  Input& _in;
  const std::string _nodeText;
  int _reads = 0;
};

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
