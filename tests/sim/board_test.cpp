#include "sim/Board.h"
#include "sim/Eeprom.h"
#include "tests/Contents.h"

#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

using namespace sim;
using namespace std::string_literals;

namespace {

const std::string CHIP = "/sys/bus/i2c/devices/1-004c/";
const std::string SMI = "/sys/module/ksz8864/drivers/smi";
const std::string ALERT = "/sys/class/gpio/gpio27/value";

ServiceMessage request(const std::string& task, const std::string& name, const std::string& flags,
                       const Payload& payload) {
  static const std::map<std::string, uint16_t> ids = {
      {"SetVideoMode", protocol::setVideoModeReq},
      {"GetVideoResolution", protocol::getVideoResolutionReq},
      {"SetVideoResolution", protocol::setVideoResolutionReq},
      {"TakeSnapshot", protocol::takeSnapshotReq},
      {"SetAudioSource", protocol::setAudioSourceReq},
      {"StreamControl", protocol::streamControlReq},
      {"AdminControl", protocol::adminControlReq},
      {"SetLoggingMode", protocol::setLoggingModeReq},
  };
  return {task, ids.at(name), name + "ReqMsg", "7", flags, payload};
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
  const auto resolution = [](unsigned h, unsigned v, unsigned q, unsigned r) {
    return Payload{{"horizontal", h}, {"vertical", v}, {"qualifier", q}, {"hertz", r}};
  };
  const auto control = [](unsigned what, unsigned type) { return Payload{{"control", what}, {"type", type}}; };
  const auto snap = [](unsigned slot, unsigned scale) { return Payload{{"slot", slot}, {"scale", scale}}; };
  const auto onOff = [](unsigned what, unsigned of) { return Payload{{"onoff", what}, {"component", of}}; };
  const struct {
    std::string task, name;
    Payload payload;
    std::string effects; // lines between the message and its reply, or after it behind a |
    std::string reply;
  } cases[] = {
      {video, "SetVideoMode", {{"mode", 8}}, "format dvi\n", " status=0"},
      {video, "SetVideoMode", {{"mode", 8}}, "", " status=0"},
      {video, "SetVideoMode", {{"mode", 0}}, "", " status=1"},
      {video, "SetVideoMode", {{"mode", 10}}, "", " status=1"},
      {video, "SetVideoMode", {{"mode", 1}}, "format svideo\n", " status=0"},
      {stream, "SetVideoMode", {{"mode", 8}}, "", " status=2"},
      {video, "SetVideoResolution", resolution(720, 576, 2, 50), "resolution 720x576i@50\n", " status=0"},
      {video, "SetVideoResolution", resolution(1921, 576, 2, 50), "", " status=1"},
      {video, "SetVideoResolution", resolution(720, 0, 2, 50), "", " status=1"},
      {video, "SetVideoResolution", resolution(720, 576, 3, 50), "", " status=1"},
      {video, "SetVideoResolution", resolution(720, 576, 1, 0), "", " status=1"},
      {video, "GetVideoResolution", {}, "", " status=0 horizontal=720 vertical=576 qualifier=2 hertz=50 sdp_std=2"},
      {admin, "GetVideoResolution", {}, "", " status=2 horizontal=0 vertical=0 qualifier=0 hertz=0 sdp_std=0"},
      {video, "SetAudioSource", {{"audiosrc", 2}}, "audio source analog\n", " status=0"},
      {video, "SetAudioSource", {{"audiosrc", 3}}, "", " status=1"},
      {video, "TakeSnapshot", snap(16, 8), "snapshot slot 16 720x576\n", " status=0"},
      {video, "TakeSnapshot", snap(1, 1), "snapshot slot 1 90x72\n", " status=0"},
      {video, "TakeSnapshot", snap(0, 8), "", " status=1"},
      {video, "TakeSnapshot", snap(17, 8), "", " status=1"},
      {video, "TakeSnapshot", snap(1, 0), "", " status=1"},
      {video, "TakeSnapshot", snap(1, 9), "", " status=1"},
      {stream, "StreamControl", control(1, 2), "stream video\n", " status=0"},
      {stream, "StreamControl", control(1, 1), "stream both\n", " status=0"},
      {stream, "StreamControl", control(2, 2), "stream audio\n", " status=0"},
      {stream, "StreamControl", control(3, 1), "", " status=1"},
      {stream, "StreamControl", control(2, 4), "", " status=1"},
      {stream, "StreamControl", control(2, 0), "", " status=1"},
      {admin, "SetLoggingMode", onOff(0, 255), "logging off\n", ""},
      {admin, "SetLoggingMode", onOff(1, 1), "", ""},
      {admin, "SetLoggingMode", onOff(2, 255), "", ""},
      {admin, "AdminControl", {{"control", 2}}, "", " status=1"},
      {admin, "AdminControl", {{"control", 1}}, "|stream off\nrestart\n", " status=0"},
      {admin, "AdminControl", {{"control", 5}}, "|firmware v" TEV_SIM_FIRMWARE " restored\nrestart\n", " status=0"},
      {admin,
       "AdminControl",
       {{"control", 4}},
       "|configuration restored\nformat hdmi\nresolution 1280x720p@30\naudio source digital\nlogging on\n"
       "alert off\nvlan mode off\nrestart\n",
       " status=0"},
  };
  bool logging = true;
  write(CHIP + "setpoint", "1");
  write(SMI, "write 0x05 0x80");
  (void)log();
  for (const auto& c : cases) {
    const ServiceReply reply = board().receive(request(c.task, c.name, "sync remote", c.payload));
    EXPECT_EQ(textOf(reply.payload), c.reply);
    const size_t bar = std::min(c.effects.find('|'), c.effects.size());
    EXPECT_EQ(log(), "message " + c.task + " " + c.name + "ReqMsg from 7 sync remote" + textOf(c.payload) + "\n" +
                         c.effects.substr(0, bar) +
                         (c.reply.empty() ? "" : "reply " + c.task + " " + c.name + "RespMsg" + c.reply + "\n") +
                         c.effects.substr(std::min(bar + 1, c.effects.size())));
    if (c.effects == "stream audio\n") {
      EXPECT_EQ(text("/sys/class/gpio/gpio26/value"), "1\n");
    }
    if (c.effects == "format svideo\n") {
      EXPECT_EQ(text("/sys/bus/i2c/devices/2-0020/format"), "svideo\n");
    }
    logging &= c.effects != "logging off\n";
    EXPECT_EQ(reply.logging, logging);
  }
  EXPECT_EQ(text("/sys/class/gpio/gpio26/value"), "0\n");
  EXPECT_EQ(text(CHIP + "setpoint"), "49\n");
  EXPECT_TRUE(board()
                  .receive({video, protocol::setVideoModeResp, "SetVideoModeRespMsg", "7", "", {{"status", 0}}})
                  .payload.empty());
  EXPECT_EQ(log(), "message tVideoPhalTask SetVideoModeRespMsg from 7 status=0\n");

  _setup.snapshotDirectory = "/nowhere";
  Board without(_setup, _log);
  EXPECT_EQ(textOf(without.receive(request(video, "TakeSnapshot", "", snap(1, 1))).payload), " status=3");
  EXPECT_EQ(log(), "message tVideoPhalTask TakeSnapshotReqMsg from 7 slot=1 scale=1\nsnapshot slot 1 -> ENOENT\n"
                   "reply tVideoPhalTask TakeSnapshotRespMsg status=3\n");
}

TEST_F(BoardTest, RepliesFailAsAsked) {
  _setup.faults.services = {{"tStreamAppTask", {ServiceFault::late, 500}}};
  _setup.faults.dice = FaultDice(1, 100);
  const ServiceMessage stream = request("tStreamAppTask", "StreamControl", "", {{"control", 2}, {"type", 3}});
  EXPECT_EQ(board().receive(stream).fault.text(), "late:500");
  EXPECT_NE(log().find("reply tStreamAppTask StreamControlRespMsg status=0 -> late:500\n"), std::string::npos);
  const ServiceMessage video = request("tVideoPhalTask", "GetVideoResolution", "", {});
  FaultDice same(1, 100);
  for (int i = 0; i < 20; ++i)
    EXPECT_EQ(board().receive(video).fault.text(), same.roll().text());
  const ServiceMessage unanswered = request("tAdminAppTask", "SetLoggingMode", "", {});
  EXPECT_EQ(board().receive(unanswered).fault.kind, ServiceFault::none);
}

TEST_F(BoardTest, StatusIsATable) {
  _setup.snapshotDirectory = testing::TempDir();
  _setup.faults.services = {{"tAdminAppTask", {ServiceFault::absent, 0}}};
  _setup.faults.dice = FaultDice(1, 1);
  _setup.faults.firstTexts = {{SMI, std::string(200, 'x')}};
  board().receive(request("tStreamAppTask", "StreamControl", "sync", {{"control", 1}, {"type", 3}}));
  board().receive(request("tVideoPhalTask", "TakeSnapshot", "sync", {{"slot", 3}, {"scale", 4}}));
  for (unsigned slot = 4; slot <= 7; ++slot)
    board().receive(request("tVideoPhalTask", "TakeSnapshot", "sync", {{"slot", slot}, {"scale", 8}}));
  board().receive(request("tVideoPhalTask", "TakeSnapshot", "sync", {{"slot", 4}, {"scale", 1}}));
  for (unsigned mode = 1; mode <= 10; ++mode)
    board().receive(request("tVideoPhalTask", "SetVideoMode", "sync", {{"mode", mode}}));
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
