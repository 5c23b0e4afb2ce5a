// tev-sim itself, run with small scripts in place of the shell.
#include "tests/Contents.h"
#include "trial/Child.h"

#include <csignal>
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
  bool isFuse() const { return GetParam() == "fuse"; }

  const std::string _file = testing::TempDir() + "tev-sim-test-" + std::to_string(getpid());
};

INSTANTIATE_TEST_SUITE_P(Nodes, TevSim, testing::Values("fuse", "files"), [](const auto& kind) { return kind.param; });

TEST_P(TevSim, ScriptsFindABoard) {
  const std::string tools = "cd /mnt/tev/sys/bin; ";
  const struct {
    Words options;
    std::string script, expected;
  } cases[] = {
      {{}, "exit 7", "=7"},
      {{}, "kill -TERM $$", "=143"},
      {{}, "id -u; test $(ls /proc | grep -c '^[0-9]') -lt 9 && echo few", "0\nfew\n=0"},
      {{}, "cat 1-004c/* 2-0020/format", "49\n15\n7e\n07\n36\nhdmi\n=0"},
      {{}, "ls -d /sys/*/* | xargs; ls 1-004c | wc -l", "/sys/bus/i2c /sys/class/gpio /sys/module/ksz8864\n5\n=0"},
      {{}, "printf 9 > 1-004c/speed; cat 1-004c/speed 1-004c/tach*", "9\n7c\n0c\n=0"},
      {{}, "printf 29 > 1-004c/setpoint; cat /sys/class/gpio/gpio27/value 1-004c/setpoint", "0\n29\n=0"},
      {{}, "printf 4 > 1-004c/speed; printf 5 > 1-004c/speed; cat 1-004c/speed", "5\n=0"},
      {{}, "cat 1-004c/speed; printf 22 1<> 1-004c/speed; cat 1-004c/speed", "15\n22\n=0"},
      {{"--node", R"(setpoint=\x2d3\n)"}, "cat 1-004c/setpoint", "-3\n=0"},
      {{"--missing", "speed", "--missing", "eeprom-read-macs-arm-none"},
       "ls 1-004c /mnt/tev/sys/bin | grep -ce speed -e read-macs",
       "0\n=1"},
      {{},
       tools + "./*read-macs*; ./*write-macs* 0a:00:00:00:00:ff; ./*read-macs*",
       "eth0 02:1A:2B:3C:4D:00\neth1 02:1A:2B:3C:4D:01\neth0 0A:00:00:00:00:FF\neth1 0A:00:00:00:01:00\n=0"},
      {{},
       tools + "./*read-ser*; ./*write-ser* 7; ./*read-ser*; ./*write-ser* ABCDEFGHIJKLMNOP; ./*read-ser*",
       "480213UNIT000001\n7\nABCDEFGHIJKLMNOP\n=0"},
      {{},
       tools + "./*write-serialnum* ABCDEFGHIJKLMNOPQ",
       "eeprom-write-serialnum-arm-none: not a serial number of 1 to 16 characters: ABCDEFGHIJKLMNOPQ\n=1"},
      {{}, tools + "./*write-macs* 1", "eeprom-write-macs-arm-none: not a MAC address: 1\n=1"},
      {{}, tools + "./*write-macs*", "eeprom-write-macs-arm-none: wants one argument\n=1"},
      {{}, tools + "./*read-macs* 1", "eeprom-read-macs-arm-none: wants no argument\n=1"},
      {{"--tool", "eeprom-read-macs-arm-none=fail", "--tool", "eeprom-read-serialnum-arm-none=silent"},
       tools + "./*read-serial*; ./*read-macs*",
       "eeprom-read-macs-arm-none: the EEPROM does not answer\n=1"},
      {{"--missing", "eeprom"},
       tools + "./*read-macs*",
       "eeprom-read-macs-arm-none: /sys/bus/i2c/devices/1-0050/eeprom: No such file or directory\n=1"},
      {{},
       "ls -A /tmp | grep -E 'Task|log'; > /tmp/tev-test && echo written",
       "tAdminAppTask.0\ntStreamAppTask.229383\ntVideoPhalTask.98307\ntransient.log\nwritten\n=0"},
      {{"--log", _file}, "test -e " + _file + " || echo hidden", "hidden\n=0"},
      {{"--log", _file, "--read-only-tmp", "--shared-tmp"}, "ls " + _file, _file + "\n=0"},
      {{"--read-only-tmp"}, "ls -A /tmp | grep -c -E 'Task|log'; test -w /tmp || echo not", "0\nnot\n=0"},
      {{},
       "ipcs -q | awk '/0x/{print $2}' | xargs; echo 98431 > /proc/sys/kernel/msg_next_id; ipcmk -Q",
       "0 98307 229383\nMessage queue id: 98431\n=0"},
      {{},
       "> /opt/tev/user/mine; > /var/log/threads.log; ls /var/log /opt/tev/user | grep -v Task | xargs",
       "/opt/tev/user: mine snapshots /var/log: board.log threads.log\n=0"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(run(c.options, c.script), c.expected) << c.script;
}

TEST_P(TevSim, LogTellsWhatReachedTheBoard) {
  const std::string script = "printf '4\\0' > 1-004c/setpoint; printf 29 > 1-004c/setpoint; echo x > 1-004c/speed;"
                             "/mnt/tev/sys/bin/eeprom-write-serialnum-arm-none 'A\" B';"
                             "{ printf 'write vlan 1 1 4 1'; printf 'write 0x05 0x80'; } >> "
                             "/sys/module/ksz8864/drivers/smi; cat 1-004c/speed > /dev/null; cat /var/log/board.log";
  const std::string inside = run({"--log", _file}, script);
  std::string outside = contents(_file);
  EXPECT_NE(inside.find(outside), inside.npos) << "both logs are the same";
  if (!isFuse()) {
    EXPECT_EQ(outside.find("note: nodes are plain files"), 0U);
    outside.erase(0, outside.find('\n') + 1);
  }
  const std::string smi = "write /sys/module/ksz8864/drivers/smi ";
  EXPECT_EQ(outside, "write /sys/bus/i2c/devices/1-004c/setpoint \"4\\0\"\n"
                     "alert on\n"
                     "write /sys/bus/i2c/devices/1-004c/setpoint \"29\"\n"
                     "write /sys/bus/i2c/devices/1-004c/speed \"x\\n\" -> EINVAL\n"
                     "tool eeprom-write-serialnum-arm-none \"A\\\" B\"\n"
                     "write /sys/bus/i2c/devices/1-0050/eeprom @8 \"A\\\" B\\0\\0\\0\\0\\0\\0\\0\\0\\0\\0\\0\\0\"\n" +
                         (isFuse() ? smi + "\"write vlan 1 1 4 1\"\n" + smi + "\"write 0x05 0x80\"\n"
                                   : smi + "\"write vlan 1 1 4 1write 0x05 0x80\"\n") +
                         "vlan mode on\n");
}

TEST_P(TevSim, WritesAreRefusedOnlyByNodesThatCan) {
  const Words faults = {"--read-only", "setpoint", "--fail-write", "speed"};
  const std::string result = run(faults, "printf 1 2>&1 > 1-004c/setpoint; printf 2 > 1-004c/speed");
  if (isFuse()) {
    EXPECT_NE(result.find("setpoint: Permission denied\n"), result.npos);
    EXPECT_NE(result.find("I/O error\n=1"), result.npos) << result;
  } else {
    EXPECT_EQ(result.substr(result.rfind('=')), "=125");
  }
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
