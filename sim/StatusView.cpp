#include "sim/StatusView.h"

#include "sim/BoardLog.h"
#include "sim/BoardSocket.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <stdexcept>
#include <sys/ioctl.h>
#include <unistd.h>

namespace sim {

namespace {

constexpr timespec watchInterval = {0, 500000000};
constexpr char cursorHome[] = "\033[H";
constexpr char clearScreen[] = "\033[2J";
constexpr char clearLine[] = "\033[K";
constexpr char clearBelow[] = "\033[J";

// Returns the process id of the board's tev-sim, which is the parent of the board's process.
pid_t launcherOf(pid_t board) {
  std::ifstream about("/proc/" + std::to_string(board) + "/stat");
  std::string text;
  std::getline(about, text, '\0');
  pid_t parent = 0;
  const size_t end = text.rfind(')'); // of the program's name, which may contain any character
  if (end == text.npos || std::sscanf(text.c_str() + end, ") %*c %d", &parent) != 1) return board;
  return parent;
}

std::string commandLine(pid_t pid) {
  std::ifstream about("/proc/" + std::to_string(pid) + "/cmdline");
  std::string text;
  std::getline(about, text, '\n');
  std::replace(text.begin(), text.end(), '\0', ' ');
  return text.substr(0, 60);
}

// Returns the boards of the process `pid`, or all boards for 0.
std::vector<RunningBoard> matchingBoards(pid_t pid) {
  std::vector<RunningBoard> boards = findBoards();
  const auto isOther = [pid](const RunningBoard& b) { return b.pid != pid && launcherOf(b.pid) != pid; };
  if (pid != 0) boards.erase(std::remove_if(boards.begin(), boards.end(), isOther), boards.end());
  return boards;
}

// Returns the lines that fit on the terminal, with the codes that overwrite the previous ones.
std::string fitToTerminal(std::string_view text) {
  winsize window = {};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &window) != 0 || window.ws_row == 0) window.ws_row = 24;
  std::string out = cursorHome;
  size_t at = 0;
  for (int line = 1; line < window.ws_row && at < text.size(); ++line) {
    const size_t end = text.find('\n', at);
    out.append(text.substr(at, end - at)).append(clearLine) += '\n';
    at = end + 1;
  }
  return out + clearBelow;
}

int watchBoard(const RunningBoard& board, const std::string& title) {
  const bool terminal = isatty(STDOUT_FILENO) == 1;
  if (terminal && std::fputs(clearScreen, stdout) < 0) return 1;
  for (;;) {
    std::string text;
    try {
      text = title + timeOfDay().substr(0, 8) + "\n" + askBoard(board, {"status"}).at(1);
    } catch (const std::exception&) {
      return std::fputs("the board has ended\n", stdout) < 0 || std::fflush(stdout) != 0 ? 1 : 0;
    }
    if (std::fputs((terminal ? fitToTerminal(text) : text + "\n").c_str(), stdout) < 0 || std::fflush(stdout) != 0)
      return 1;
    (void)nanosleep(&watchInterval, nullptr); // if interrupted, the next refresh is earlier
  }
}

} // namespace

int showStatus(pid_t pid, bool watch) {
  const std::vector<RunningBoard> boards = matchingBoards(pid);
  if (boards.empty()) {
    const std::string of = pid != 0 ? " of process " + std::to_string(pid) : std::string();
    (void)std::fprintf(stderr, "tev-sim: no board%s is running that belongs to this user\n", of.c_str());
    return 1;
  }
  if (boards.size() > 1) {
    (void)std::fputs("tev-sim: several boards are running; choose one with --pid:\n", stderr);
    for (const RunningBoard& board : boards) {
      const pid_t launcher = launcherOf(board.pid);
      (void)std::fprintf(stderr, "%8d  %s\n", launcher, commandLine(launcher).c_str());
    }
    return 1;
  }
  char title[80];
  (void)std::snprintf(title, sizeof title, "board of tev-sim %-54d", launcherOf(boards[0].pid));
  if (watch) return watchBoard(boards[0], title);
  const std::string text = title + timeOfDay().substr(0, 8) + "\n" + askBoard(boards[0], {"status"}).at(1);
  return std::fputs(text.c_str(), stdout) < 0 || std::fflush(stdout) != 0 ? 1 : 0;
}

} // namespace sim
