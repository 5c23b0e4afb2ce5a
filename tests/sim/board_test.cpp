#include "messaging/Messages.h"
#include "sim/Board.h"
#include "tests/Files.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

using namespace sim;
using namespace std::string_literals;

namespace {

const std::string CHIP = "/sys/bus/i2c/devices/1-004c/";
const std::string SMI = "/sys/module/ksz8864/drivers/smi";
const std::string ALERT = "/sys/class/gpio/gpio27/value";

ServiceMessage request(const std::string& task, const MsgLayout& layout, const std::vector<unsigned>& words) {
  Payload payload;
  for (size_t i = 0; i < words.size(); ++i)
    payload.push_back({layout.fields[i].name, words[i]});
  return {task, layout.id, layout.name, "7", "sync remote", payload};
}

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
  board().advance(3600);
  EXPECT_EQ(log(), "alert on\n");
  EXPECT_EQ(text(ALERT), "0\n") << "active low";
  write(CHIP + "speed", "63");
  (void)log();
  board().advance(3600);
  EXPECT_EQ(log(), "alert off\n");
  EXPECT_EQ(text(ALERT), "1\n");
}

TEST_F(BoardTest, MessagesActOnTheApplianceAndAreAnswered) {
  _setup.snapshotDirectory = testing::TempDir();
  const std::string video = "tVideoPhalTask", stream = "tStreamAppTask", admin = "tAdminAppTask";
  const struct {
    std::string task;
    const MsgLayout& layout;
    std::vector<unsigned> words;
    std::string effects; // lines between the message and its reply, or after it behind a |
    std::string reply;
  } cases[] = {
      {video, SetVideoModeReqMsg::layout, {8}, "format dvi\n", " status=0"},
      {video, SetVideoModeReqMsg::layout, {8}, "", " status=0"},
      {video, SetVideoModeReqMsg::layout, {0}, "", " status=1"},
      {video, SetVideoModeReqMsg::layout, {10}, "", " status=1"},
      {video, SetVideoModeReqMsg::layout, {1}, "format svideo\n", " status=0"},
      {stream, SetVideoModeReqMsg::layout, {8}, "", " status=2"},
      {video, SetVideoResolutionReqMsg::layout, {720, 576, 2, 50}, "resolution 720x576i@50\n", " status=0"},
      {video, SetVideoResolutionReqMsg::layout, {1921, 576, 2, 50}, "", " status=1"},
      {video, SetVideoResolutionReqMsg::layout, {720, 0, 2, 50}, "", " status=1"},
      {video, SetVideoResolutionReqMsg::layout, {720, 576, 3, 50}, "", " status=1"},
      {video, SetVideoResolutionReqMsg::layout, {720, 576, 1, 0}, "", " status=1"},
      {video,
       GetVideoResolutionReqMsg::layout,
       {},
       "",
       " status=0 horizontal=720 vertical=576 qualifier=2 hertz=50 sdp_std=2"},
      {admin,
       GetVideoResolutionReqMsg::layout,
       {},
       "",
       " status=2 horizontal=0 vertical=0 qualifier=0 hertz=0 sdp_std=0"},
      {video, SetAudioSourceReqMsg::layout, {2}, "audio source analog\n", " status=0"},
      {video, SetAudioSourceReqMsg::layout, {3}, "", " status=1"},
      {video, TakeSnapshotReqMsg::layout, {16, 8}, "snapshot slot 16 720x576\n", " status=0"},
      {video, TakeSnapshotReqMsg::layout, {1, 1}, "snapshot slot 1 90x72\n", " status=0"},
      {video, TakeSnapshotReqMsg::layout, {0, 8}, "", " status=1"},
      {video, TakeSnapshotReqMsg::layout, {17, 8}, "", " status=1"},
      {video, TakeSnapshotReqMsg::layout, {1, 0}, "", " status=1"},
      {video, TakeSnapshotReqMsg::layout, {1, 9}, "", " status=1"},
      {stream, StreamControlReqMsg::layout, {1, 2}, "stream video\n", " status=0"},
      {stream, StreamControlReqMsg::layout, {1, 1}, "stream both\n", " status=0"},
      {stream, StreamControlReqMsg::layout, {2, 2}, "stream audio\n", " status=0"},
      {stream, StreamControlReqMsg::layout, {3, 1}, "", " status=1"},
      {stream, StreamControlReqMsg::layout, {2, 4}, "", " status=1"},
      {stream, StreamControlReqMsg::layout, {2, 0}, "", " status=1"},
      {admin, SetLoggingModeReqMsg::layout, {0, 255}, "logging off\n", ""},
      {admin, SetLoggingModeReqMsg::layout, {1, 1}, "", ""},
      {admin, SetLoggingModeReqMsg::layout, {2, 255}, "", ""},
      {admin, AdminControlReqMsg::layout, {2}, "", " status=1"},
      {admin, AdminControlReqMsg::layout, {1}, "|stream off\nrestart\n", " status=0"},
      {admin, AdminControlReqMsg::layout, {5}, "|firmware v" TEV_SIM_FIRMWARE " restored\nrestart\n", " status=0"},
      {admin,
       AdminControlReqMsg::layout,
       {4},
       "|configuration restored\nformat hdmi\nresolution 1280x720p@30\naudio source digital\nlogging on\n"
       "alert off\nvlan mode off\nrestart\n",
       " status=0"},
  };
  write(CHIP + "setpoint", "1");
  write(SMI, "write 0x05 0x80");
  (void)log();
  for (const auto& c : cases) {
    const ServiceMessage message = request(c.task, c.layout, c.words);
    EXPECT_EQ(textOf(board().receive(message).payload), c.reply);
    const size_t bar = std::min(c.effects.find('|'), c.effects.size());
    std::string answer = "reply " + c.task + " " + c.layout.name + c.reply + "\n";
    answer.replace(answer.find("Req"), 3, "Resp");
    EXPECT_EQ(log(), "message " + c.task + " " + c.layout.name + " from 7 sync remote" + textOf(message.payload) +
                         "\n" + c.effects.substr(0, bar) + (c.reply.empty() ? "" : answer) +
                         c.effects.substr(std::min(bar + 1, c.effects.size())));
  }
  EXPECT_EQ(text(CHIP + "setpoint"), "49\n");
  EXPECT_TRUE(board().receive(request(video, SetVideoModeRespMsg::layout, {0})).payload.empty());
  EXPECT_EQ(log(), "message tVideoPhalTask SetVideoModeRespMsg from 7 sync remote status=0\n");

  _setup.snapshotDirectory = "/nowhere";
  Board without(_setup, _log);
  EXPECT_EQ(textOf(without.receive(request(video, TakeSnapshotReqMsg::layout, {1, 1})).payload), " status=3");
  EXPECT_NE(log().find("\nsnapshot slot 1 -> ENOENT\n"), std::string::npos);
}

TEST_F(BoardTest, StatusIsATable) {
  _setup.snapshotDirectory = testing::TempDir();
  _setup.faults.services = {{"tAdminAppTask", {ServiceFault::absent, 0}}};
  _setup.faults.dice = FaultDice(1, 1);
  _setup.faults.firstTexts = {{SMI, std::string(200, 'x')}};
  board().receive(request("tStreamAppTask", StreamControlReqMsg::layout, {1, 3}));
  board().receive(request("tVideoPhalTask", TakeSnapshotReqMsg::layout, {3, 4}));
  for (unsigned slot = 4; slot <= 7; ++slot)
    board().receive(request("tVideoPhalTask", TakeSnapshotReqMsg::layout, {slot, 8}));
  board().receive(request("tVideoPhalTask", TakeSnapshotReqMsg::layout, {4, 1}));
  for (unsigned mode = 1; mode <= 10; ++mode)
    board().receive(request("tVideoPhalTask", SetVideoModeReqMsg::layout, {mode}));
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
