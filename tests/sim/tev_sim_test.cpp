// tev-sim itself, run with small scripts in place of the shell.
#include "tests/Files.h"
#include "trial/Child.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/wait.h>

namespace {

using trial::Child;
using trial::Words;
using Streams = Child::Streams;

Words tevSim(const Words& options, const std::string& script) {
  Words words = {TEV_SIM_PROGRAM};
  words.insert(words.end(), options.begin(), options.end());
  words.insert(words.end(), {"--", "sh", "-c", script});
  return words;
}

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
  void TearDown() override { (void)unlink(_file.c_str()); }

  Words options(Words more = {}) const {
    more.insert(more.begin(), {"--nodes", GetParam()});
    return more;
  }
  // What the script prints in the folder of the I2C devices, and after it how tev-sim ends.
  std::string run(const Words& more, const std::string& script) const {
    Child child(tevSim(options(more), "cd /sys/bus/i2c/devices; exec 2>&1; " + script), Streams::output);
    const std::string output = child.readTo();
    return output + "=" + std::to_string(child.wait());
  }
  const std::string _file = testing::TempDir() + "tev-sim-test-" + std::to_string(getpid());
};

INSTANTIATE_TEST_SUITE_P(Nodes, TevSim, testing::Values("fuse", "files"), [](const auto& kind) { return kind.param; });

TEST_P(TevSim, SnapshotsAreStoredOutside) {
  std::filesystem::create_directory(_file);
  const std::string ask = "msgsnd 98307, pack('l! n x2 N2 n2 x4', 1, 110, 7, 0, 3, 4), 0";
  EXPECT_EQ(run({"--snapshots", _file}, "perl -e \"" + ask + "\"; until grep -q ^reply /var/log/board.log; do :; done"),
            "=0");
  EXPECT_GT(std::filesystem::file_size(_file + "/slot03.jpg"), 1000U);
  std::filesystem::remove_all(_file);
}

TEST_P(TevSim, NothingOfTheMachineChanges) {
  const Words look = {"sh", "-c", "ls -A / /opt /mnt /var/log; cat /proc/mounts; ipcs -q; ls /sys/class"};
  const std::string before = outputOf(look);
  EXPECT_EQ(
      run({"--dump", _file}, "> /opt/tev/a; > /mnt/tev/b; > /var/log/c; ipcmk -Q >/dev/null; echo 0 > 1-004c/speed"),
      "=0");
  EXPECT_NE(contents(_file).find("\n/sys/bus/i2c/devices/1-004c/speed \"0\\n\"\n"), std::string::npos);
  TearDown();
  EXPECT_EQ(outputOf(look), before);
  const std::string beside = "for f in /opt /mnt; do ls -A $f | grep -v '^tev$'; done; cat /etc/passwd";
  EXPECT_EQ(run({}, beside), outputOf({"sh", "-c", beside}) + "=0");
}

TEST_P(TevSim, CommandStartsWhereverItIs) {
  std::ofstream(_file) << "#!/bin/sh\necho $1 $(ls -A /tmp | grep -c test-)\n";
  ASSERT_EQ(chmod(_file.c_str(), 0755), 0);
  const auto start = [&](const std::string& command) {
    return outputOf({"sh", "-c", "cd /tmp; " TEV_SIM_PROGRAM " -- " + command + " 2>&1; echo =$?"});
  };
  EXPECT_EQ(start(_file + " 'a b'"), "a b 0\n=0\n") << "hidden by the private /tmp";
  EXPECT_EQ(start("./" + _file.substr(_file.rfind('/') + 1) + " c"), "c 0\n=0\n") << "and named in its folder";
  EXPECT_EQ(outputOf({"sh", "-c", "cd /sys; " TEV_SIM_PROGRAM " -- sh -c 'pwd; cat bus/i2c/devices/2-0020/format'"}),
            "/sys\nhdmi\n");
  EXPECT_EQ(start("sh -c 'test -e /proc/self/fd/0 || echo closed' <&-"), "closed\n=0\n");
  EXPECT_EQ(start("./none"), "tev-sim: cannot start ./none: No such file or directory\n=127\n");
  EXPECT_EQ(start("no-such-command"), "tev-sim: cannot start no-such-command: No such file or directory\n=127\n");
  EXPECT_EQ(start("/etc/passwd"), "tev-sim: cannot start /etc/passwd: Permission denied\n=126\n");
}

TEST_P(TevSim, KillingItLeavesNothing) {
  for (const int signal : {SIGKILL, SIGTERM}) {
    Child child(tevSim(options(), "trap 'echo term; exit 3' TERM; setsid sleep 1000 & echo up; wait"), Streams::output);
    child.readTo("up\n");
    child.send(signal);
    EXPECT_EQ(child.readTo(), signal == SIGKILL ? "" : "term\n") << "ends when the last process has ended";
    EXPECT_EQ(child.wait(), signal == SIGKILL ? 128 + SIGKILL : 3);
  }
}

TEST_P(TevSim, StatusIsSeenFromAnotherTerminal) {
  Child board(tevSim(options(), "echo up; cat; printf 1 > /sys/class/gpio/gpio26/value; echo on; cat"),
              Streams::terminal);
  board.readTo("up\r\n");
  const std::string pid = std::to_string(board.pid());
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
  board.type("\x04");
  board.readTo("on\r\n");
  print.readTo("gpio26/value               \"1");
  board.type("\x04");
  EXPECT_EQ(board.wait(), 0);
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
