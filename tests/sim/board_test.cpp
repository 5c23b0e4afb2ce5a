#include "messaging/Messages.h"
#include "sim/Board.h"
#include "tests/Files.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

using namespace sim;

namespace {

const std::string CHIP = "/sys/bus/i2c/devices/1-004c/";
const std::string SMI = "/sys/module/ksz8864/drivers/smi";
const std::string ALERT = "/sys/class/gpio/gpio27/value";

struct BoardTest : testing::Test {
  BoardTest() {
    kr::Descriptor file(memfd_create("log", MFD_CLOEXEC));
    _lines = Growing("/proc/self/fd/" + std::to_string(file.get()));
    _log.addFile(std::move(file));
    _setup.frozen = true;
  }
  Board& board() {
    if (!_board) _board = std::make_unique<Board>(_setup, _log);
    return *_board;
  }
  size_t index(const std::string& path) {
    for (size_t i = 0; i < board().nodes().size(); ++i) {
      if (board().nodes()[i].path == path) return i;
    }
    throw std::out_of_range(path);
  }
  std::string text(const std::string& path) { return std::string(board().read(index(path), 0, 4096)); }
  ssize_t write(const std::string& path, std::string_view bytes, size_t offset = 0) {
    return board().write(index(path), offset, bytes);
  }
  // The lines that are new since the last call.
  std::string log() { return _lines.news(); }
  void receive(const std::string& task, const MsgLayout& layout, const std::vector<unsigned>& words) {
    Payload payload;
    for (size_t i = 0; i < words.size(); ++i)
      payload.push_back({layout.fields[i].name, words[i]});
    (void)board().receive({task, layout.id, layout.name, "7", "sync remote", payload});
  }

  Board::Setup _setup;

  BoardLog _log;

private:
  Growing _lines{""};
  std::unique_ptr<Board> _board;
};

TEST_F(BoardTest, TimeChangesNothingWhenFrozen) {
  const std::string before = text(CHIP + "temperature");
  write(CHIP + "speed", "0");
  board().advance(3600);
  EXPECT_EQ(text(CHIP + "temperature"), before);
}

TEST_F(BoardTest, AlertComesAndGoesWithTheTemperature) {
  _setup.frozen = false;
  write(CHIP + "speed", "0");
  (void)log();
  board().advance(1);
  EXPECT_EQ(log(), "") << "it gets warm slowly";
  board().advance(3600);
  EXPECT_EQ(log(), "alert on\n");
  EXPECT_EQ(text(CHIP + "temperature"), "59\n") << "70 degrees, without a fan";
  EXPECT_EQ(text(ALERT), "0\n") << "active low";
  write(CHIP + "speed", "63");
  (void)log();
  board().advance(3600);
  EXPECT_EQ(log(), "alert off\n");
  EXPECT_EQ(text(ALERT), "1\n");
}

TEST_F(BoardTest, StatusIsATable) {
  _setup.snapshotDirectory = testing::TempDir();
  _setup.faults.services = {{"tAdminAppTask", {ServiceFault::absent, 0}}};
  _setup.faults.dice = FaultDice(1, 1);
  _setup.faults.firstTexts = {{SMI, std::string(200, 'x')}};
  receive("tStreamAppTask", StreamControlReqMsg::layout, {1, 3});
  receive("tVideoPhalTask", TakeSnapshotReqMsg::layout, {3, 4});
  for (unsigned slot = 4; slot <= 7; ++slot)
    receive("tVideoPhalTask", TakeSnapshotReqMsg::layout, {slot, 8});
  receive("tVideoPhalTask", TakeSnapshotReqMsg::layout, {4, 1});
  for (unsigned mode = 1; mode <= 10; ++mode)
    receive("tVideoPhalTask", SetVideoModeReqMsg::layout, {mode});
  std::string status = board().status();
  for (size_t at = 0; (at = status.find(':', at)) != status.npos; ++at) // times of day
    if (at >= 2 && status[at + 3] == ':') status.replace(at - 2, 8, "HH:MM:SS");
  const std::string rule(79, '-');
  const std::string expected = "temperature   47 C                           stream       both\n"
                               "alert         off, from 60 C on              format       hdmi\n"
                               "fan           15 of 63, 1500 rpm             resolution   1280x720p@30\n"
                               "vlan mode     off                            audio        digital\n"
                               "firmware      v2.1.112, restarts: 0          logging      on\n" +
                               rule +
                               "\nservice              queue  messages  last status  fault\n"
                               "tVideoPhalTask       98307        16            1  1 % at random\n"
                               "tStreamAppTask      229383         1            0  1 % at random\n"
                               "tAdminAppTask            0         0            -  absent\n" +
                               rule +
                               "\nHH:MM:SS snapshot slot 4 160x90\nHH:MM:SS snapshot slot 7 1280x720\n"
                               "HH:MM:SS snapshot slot 6 1280x720\nHH:MM:SS snapshot slot 5 1280x720\n" +
                               rule +
                               "\nHH:MM:SS tVideoPhalTask SetVideoMode mode=10 = 1\n"
                               "HH:MM:SS tVideoPhalTask SetVideoMode mode=9 = 0\n";
  EXPECT_EQ(status.substr(0, expected.size()), expected);
  EXPECT_EQ(status.find("mode=2 "), status.npos) << "the latest eight";
  EXPECT_NE(status.find("\n/sys/class/gpio/gpio26/value               \"1\\n\"\n"), status.npos);
  EXPECT_NE(status.find("\n/sys/module/ksz8864/drivers/smi            \"" + std::string(32, 'x') + "...\n"),
            status.npos);
}

} // namespace
