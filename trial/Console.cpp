#include "trial/Console.h"

#include "sim/SystemError.h"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace trial {

namespace {

constexpr char traceLog[] = "/tmp/cli.log";
constexpr char replyType[] = "   msgType = ";

// The lines of the trace log, by the text that they begin with or, after a *, hold.
constexpr std::pair<std::string_view, Answer::Event> lineKinds[] = {
    {"MsgObj::send()[isReqSyncMsg/remote] - pSourceCommObj->ReadReplyMsg(...) returned: ", Answer::request},
    {"timed out waiting on reply of msgType: ", Answer::timedOut},
    {"couldn't get all the expected data, size=", Answer::tooShort},
    {"flushing data from pipe: ", Answer::drained},
    {"MsgObj::Make(): returning 0 for creation request of msgid: ", Answer::undecoded},
    {"CommObj::run() - dropping an oversized message from msgQ: ", Answer::undecoded},
    {"   ", Answer::none},
    {"CommObj::ReadReplyMsg(...) - ", Answer::none},
    {"MsgObj::send()[isReqSyncMsg/remote] - ", Answer::none},
    {"*espmsg: ", Answer::none},
    {"*RespMsg:", Answer::none}};

void take(const std::string& line, Answer& answer) {
  if (line.empty()) return;
  const auto* const found = std::find_if(std::begin(lineKinds), std::end(lineKinds), [&line](const auto& kind) {
    const std::string_view text = kind.first;
    return text[0] == '*' ? line.find(text.substr(1)) != line.npos : line.rfind(text, 0) == 0;
  });
  const Answer::Event event = found == std::end(lineKinds) ? Answer::unknown : found->second;
  ++answer.events[event];
  if (event == Answer::unknown) answer.unknownLine = line;
  if (line.rfind(replyType, 0) == 0) answer.replyType = line;
}

/// The first process that `parent` has started.
pid_t childOf(pid_t parent) {
  const std::string number = std::to_string(parent);
  std::ifstream children("/proc/" + number + "/task/" + number + "/children");
  pid_t child = 0;
  if (!(children >> child)) throw std::runtime_error("process " + number + " has no child");
  return child;
}

} // namespace

Console::Console(const std::string& program, const std::string& sim)
    : Shell(sim.empty() ? Strings{program} : Strings{sim, "--frozen", "--", program}) {
  std::string text;
  if (awaitPrompt(&text) != State::prompting) throw std::runtime_error("no prompt: " + text);
  (void)usleep(1'500'000); // by then the shell's task has printed what it prints at its start
  _board = sim.empty() ? getpid() : childOf(pid());
  _root = "/proc/" + std::to_string(_board) + "/root";
  _trace = kr::Descriptor(sim::check(open((_root + traceLog).c_str(), O_RDONLY | O_CLOEXEC), traceLog));
  _at = sim::check(lseek(_trace.get(), 0, SEEK_END), traceLog);
}

Answer Console::await() {
  Answer answer;
  answer.state = awaitPrompt(&answer.text);
  readTrace(answer);
  return answer;
}

void Console::readTrace(Answer& answer) {
  char piece[4096];
  ssize_t count = 0;
  while ((count = sim::check(pread(_trace.get(), piece, sizeof piece, _at), traceLog)) > 0) {
    _at += count;
    _rest.append(piece, static_cast<size_t>(count));
  }
  for (size_t end = 0; (end = _rest.find('\n')) != _rest.npos; _rest.erase(0, end + 1))
    take(_rest.substr(0, end), answer);
}

void Console::cutLogs() const {
  constexpr off_t kept = 1 << 20;
  std::vector<std::string> logs = {_root + traceLog};
  for (const auto& entry : std::filesystem::directory_iterator(_root + "/var/log"))
    logs.push_back(entry.path());
  for (const std::string& log : logs) {
    const kr::Descriptor file(open(log.c_str(), O_WRONLY | O_CLOEXEC));
    const off_t size = lseek(file.get(), 0, SEEK_END);
    // A file system that cannot do it keeps the bytes.
    if (size > 2 * kept) (void)fallocate(file.get(), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 0, size - kept);
  }
}

std::map<std::string, long> Console::use() const {
  const std::string folder = "/proc/" + std::to_string(pid());
  std::map<std::string, long> use;
  std::ifstream rollup(folder + "/smaps_rollup"); // exact, unlike the counters in status
  for (std::string line; std::getline(rollup, line);)
    if (line.rfind("Rss:", 0) == 0 || line.rfind("Anonymous:", 0) == 0)
      use[line.substr(0, line.find(':'))] = std::stol(line.substr(line.find(':') + 1));
  if (use["Rss"] == 0) throw std::runtime_error(folder + " does not show the memory");
  using Entries = std::filesystem::directory_iterator;
  use["descriptors"] = std::distance(Entries(folder + "/fd"), Entries());
  return use;
}

} // namespace trial
