// tev-sim itself, run with small scripts in place of the shell.
#include "trial/Child.h"

#include <gtest/gtest.h>

namespace {

using trial::Child;
using Words = trial::Strings;
using Streams = Child::Streams;

std::string outputOf(const Words& words) {
  Child child(words, Streams::output);
  const std::string output = child.readTo();
  (void)child.wait();
  return output;
}

// Every test runs with both kinds of nodes, as far as the machine lets it.
class TevSim : public testing::TestWithParam<std::string> {
protected:
  void SetUp() override {
    Child probe({TEV_SIM_PROGRAM, "--nodes", GetParam(), "--probe"}, Streams::output);
    const std::string reason = probe.readTo();
    if (const int status = probe.wait(); status == 125) {
      GTEST_SKIP() << reason;
    } else {
      ASSERT_EQ(status, 0) << reason;
    }
  }
  static Words board(const std::string& script) {
    return {TEV_SIM_PROGRAM, "--nodes", GetParam(), "--", "sh", "-c", script};
  }
};

INSTANTIATE_TEST_SUITE_P(Nodes, TevSim, testing::Values("fuse", "files"), [](const auto& kind) { return kind.param; });

TEST_P(TevSim, StatusIsSeenFromAnotherTerminal) {
  Child shell(board("echo up; cat; printf 1 > /sys/class/gpio/gpio26/value; echo on; cat"), Streams::terminal);
  shell.readTo("up\r\n");
  const std::string pid = std::to_string(shell.pid());
  const std::string once = outputOf({TEV_SIM_PROGRAM, "--status", "--pid", pid});
  EXPECT_EQ(once.find("board of tev-sim " + pid + " "), 0U) << once;
  EXPECT_NE(once.find("\n/sys/class/gpio/gpio26/value               \"0\\n\"\n"), once.npos) << once;
  Child watch({TEV_SIM_PROGRAM, "--watch", "--pid=" + pid}, Streams::terminal);
  watch.readTo("\x1b[2J\x1b[Hboard of tev-sim " + pid);
  for (int line = 1; line < 24; ++line)
    EXPECT_LE(watch.readTo("\x1b[K\r\n").size(), 79U + 5U);
  EXPECT_EQ(watch.readTo("\x1b[J"), "\x1b[J") << "no more than the terminal has lines";
  watch.readTo("\x1b[H");
  Child print({TEV_SIM_PROGRAM, "--watch", "--pid=" + pid}, Streams::output);
  print.readTo("gpio26/value               \"0");
  shell.type("\x04");
  shell.readTo("on\r\n");
  print.readTo("gpio26/value               \"1");
  shell.type("\x04");
  EXPECT_EQ(shell.wait(), 0);
  watch.readTo("the board has ended\r\n");
  EXPECT_EQ(watch.wait(), 0);
  print.readTo("the board has ended\n");
  EXPECT_EQ(print.wait(), 0);
  EXPECT_EQ(outputOf({"sh", "-c", TEV_SIM_PROGRAM " --status --pid=1 2>&1; echo $?"}),
            "tev-sim: no board of process 1 is running that belongs to this user\n1\n");
}

TEST_P(TevSim, TerminalBelongsToTheCommand) {
  const std::string board = TEV_SIM_PROGRAM " --nodes " + GetParam() + " -- ";
  Child shell({"sh", "-c",
               "set -m; " + board + "cat; echo rc $?; fg; echo rc $?;" + board +
                   "sh -c 'trap \"echo caught\" INT; trap \"\" TSTP; echo ready; cat; exit 5'; echo rc $?"},
              Streams::terminal);
  shell.type("one\n");
  shell.readTo("one\r\none\r\n"); // the terminal's echo, and cat
  shell.type("\x1a");
  shell.readTo("rc 148\r\n"); // stopped by signal 20
  shell.readTo("-- cat\r\n"); // fg names what goes on
  shell.type("two\n");
  shell.readTo("two\r\ntwo\r\n");
  shell.type("\x03");
  shell.readTo("rc 130\r\n");
  shell.readTo("ready\r\n");
  shell.type("\x1athree\n");
  shell.readTo("three\r\nthree\r\n"); // Ctrl-Z is ignored, and so nothing stops
  shell.type("\x03");
  shell.readTo("caught\r\n");
  shell.readTo("rc 5\r\n");
  EXPECT_EQ(shell.wait(), 0);
}

} // namespace
