// The service tasks, asked by an endpoint of our own: real messages on real queues.
#include "messaging/CommObj.h"
#include "messaging/Messages.h"
#include "messaging/ProxyCommObj.h"
#include "sim/Appliance.h"
#include "tests/Contents.h"
#include "trial/Child.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <sys/msg.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using Streams = trial::Child::Streams;
using Clock = std::chrono::steady_clock;

// Each test runs on a board of its own: outside, it only starts itself there.
class Services : public testing::Test {
protected:
  static bool isOnBoard() { return std::getenv("TEV_ON_BOARD") != nullptr; } // NOLINT: there is one thread
  // True on the board. Outside it runs the test there and tells how that went.
  bool onBoard(const std::string& options = "") {
    if (isOnBoard()) {
      CommObj::SetKey(153190);
      _console = new CommObj("tCliAppTask"); // the process is all there is to clean up
      return true;
    }
    if (trial::Child({TEV_SIM_PROGRAM, "--probe"}, Streams::none).wait() == 125) {
      skip();
    } else {
      const auto* test = testing::UnitTest::GetInstance()->current_test_info();
      const std::string self = std::string(test->test_suite_name()) + "." + test->name();
      const std::string line = TEV_SIM_PROGRAM " --frozen " + options + " -- /proc/" + std::to_string(getpid()) +
                               "/exe --gtest_brief=1 '--gtest_filter=" + self + "'";
      EXPECT_EQ(trial::Child({"sh", "-c", line}, Streams::none, {"TEV_ON_BOARD=1"}).wait(), 0);
    }
    return false;
  }

  unsigned long consoleId() const { return _console->GetTaskId(); }

  // Sends a request like the console does. The reply's words; none if there was no reply.
  template <class Request>
  std::vector<int> ask(const char* task, const std::vector<uint16_t>& words = {}, bool isForUs = true) {
    auto* request = new Request(ProxyCommObj("tCliAppTask").Tid(), ProxyCommObj(task).Tid());
    std::copy(words.begin(), words.end(), static_cast<MsgImage*>(request->image())->words);
    request->SetSync();
    request->SetRemote();
    const Clock::time_point start = Clock::now();
    const std::unique_ptr<MsgObj> reply(request->Send());
    _waited = std::chrono::duration<double>(Clock::now() - start).count();
    if (!reply) return {};
    const auto* image = static_cast<const MsgImage*>(reply->image());
    EXPECT_EQ(image->dstTid == consoleId(), isForUs);
    return {image->words, image->words + (reply->size() - MsgImage::headerSize) / 2};
  }

  Growing _log{"/var/log/board.log"};
  double _waited = 0; // for the last reply, in seconds

private:
  static void skip() { GTEST_SKIP() << "no stand-in board here"; }

  CommObj* _console = nullptr;
};

TEST_F(Services, AnswerEveryRequest) {
  const std::string folder = testing::TempDir() + "snapshots-" + std::to_string(getpid());
  (void)(isOnBoard() ? 0 : mkdir(folder.c_str(), 0755));
  if (!onBoard("--snapshots " + folder)) {
    EXPECT_TRUE(IsSkipped() || unlink((folder + "/slot03.jpg").c_str()) == 0) << "the machine has it";
    EXPECT_EQ(rmdir(folder.c_str()), 0) << "and nothing else";
    return;
  }
  const std::vector<int> done = {0, 0}; // the status, and what fills the image up
  EXPECT_EQ(ask<SetVideoModeReqMsg>("tVideoPhalTask", {8}), done);
  EXPECT_EQ(contents("/sys/bus/i2c/devices/2-0020/format"), "dvi\n");
  EXPECT_EQ(ask<SetVideoResolutionReqMsg>("tVideoPhalTask", {640, 480, 1, 30}), done);
  EXPECT_EQ(ask<GetVideoResolutionReqMsg>("tVideoPhalTask"), (std::vector<int>{0, 640, 480, 1, 30, 0}));
  EXPECT_EQ(ask<SetAudioSourceReqMsg>("tVideoPhalTask", {2}), done);
  EXPECT_EQ(ask<TakeSnapshotReqMsg>("tVideoPhalTask", {3, 4}), done);
  EXPECT_EQ(ask<TakeSnapshotReqMsg>("tVideoPhalTask", {3, 9}), (std::vector<int>{1, 0}));
  EXPECT_GT(contents("/opt/tev/user/snapshots/slot03.jpg").size(), 1000U);
  EXPECT_EQ(ask<StreamControlReqMsg>("tStreamAppTask", {1, 3}), done);
  EXPECT_EQ(ask<StreamControlReqMsg>("tAdminAppTask", {1, 3}), (std::vector<int>{2, 0})) << "the wrong one";
  EXPECT_EQ(ask<AdminControlReqMsg>("tAdminAppTask", {1}), done);
  const std::string told = _log.news();
  for (const char* line :
       {"message tVideoPhalTask SetVideoModeReqMsg from tCliAppTask sync remote mode=8\nformat dvi\n",
        "reply tVideoPhalTask GetVideoResolutionRespMsg status=0 horizontal=640 vertical=480 ",
        "message tStreamAppTask StreamControlReqMsg from tCliAppTask sync remote control=1 type=3\n",
        "AdminControlReqMsg from tCliAppTask sync remote control=1 arg1=0 arg2=0 arg3=0 arg4=0\n"
        "reply tAdminAppTask AdminControlRespMsg status=0\nstream off\nrestart\n"})
    EXPECT_NE(told.find(line), told.npos) << told;
}

// What needs no waiting for a reply, and what comes back anyway.
TEST_F(Services, ServeWhatIsSentWithoutWaiting) {
  if (!onBoard()) return;
  const auto post = [this](MsgObj* request) {
    request->SetRemote();
    EXPECT_EQ(request->Send(), nullptr);
    EXPECT_EQ(ask<GetVideoResolutionReqMsg>("tAdminAppTask").at(0), 2) << "all before it has been served";
  };
  const std::string file = "/var/log/tAdminAppTask.log";
  auto* off = new SetLoggingModeReqMsg(consoleId(), 0);
  off->SetComponent(255);
  post(off);
  const std::string quiet = contents(file);
  EXPECT_EQ(quiet.find("SetLoggingModeReqMsg"), quiet.npos) << "its log is off before it tells of the message";
  auto* on = new SetLoggingModeReqMsg(consoleId(), 0);
  on->SetOnOff(1);
  on->SetComponent(255);
  post(on);
  EXPECT_NE(contents(file).find("SetLoggingModeReqMsg:\n   msgType = 112\n"), std::string::npos);
  EXPECT_NE(
      _log.news().find("message tAdminAppTask SetLoggingModeReqMsg from tCliAppTask remote onoff=1 component=255\n"
                       "logging on\n"
                       "message tAdminAppTask GetVideoResolutionReqMsg"),
      std::string::npos);
  post(new StreamControlReqMsg(consoleId(), 0));
  char reply[100] = {};
  EXPECT_EQ(msgrcv(static_cast<int>(consoleId()), reply, sizeof reply - sizeof(long), 0, IPC_NOWAIT), 20)
      << "what nobody waits for is answered on the queue";
}

class FaultyServices : public Services, public testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(Faults, FaultyServices,
                         testing::Values("none", "silent", "late:40", "short", "split", "garbage", "dies", "absent"),
                         [](const auto& fault) { return std::string(fault.param).substr(0, 4); });

TEST_P(FaultyServices, FailAsAskedAndHarmNobodyElse) {
  const std::string fault = GetParam();
  if (!onBoard("--service tVideoPhalTask=" + fault)) return;
  tev::initlog("/tmp/trace.log");
  tev::log << tev::enable;
  Growing traceLog("/tmp/trace.log");
  const std::vector<int> done = {0, 0};
  const struct {
    const char* fault;
    std::vector<int> reply;
    double waited;    // at least so many seconds
    std::string told; // in the trace log
    std::string next; // in the trace log, of the next request
  } cases[] = {
      {"none", done, 0, "returning pRespMsg", ""},
      {"silent", {}, 3, "timed out waiting on reply of msgType: 101", ""},
      {"late:40", done, 0.04, "returning pRespMsg", ""},
      {"short", {}, 0, "couldn't get all the expected data, size=20, left=10", ""},
      {"split", {}, 0, "couldn't get all the expected data, size=20, left=10", "flushing data from pipe"},
      {"garbage", {0xa5a5, 0xa5a5}, 0, "returning pRespMsg", ""},
      {"dies", {}, 0, "couldn't get all the expected data, size=20, left=10", ""},
      {"absent", {}, 3, "timed out waiting on reply of msgType: 101", ""},
  };
  for (const auto& c : cases) {
    if (c.fault != fault) continue;
    for (int round = 0; round < (c.waited < 1 ? 3 : 1); ++round) { // also after the task has died
      EXPECT_EQ(ask<SetVideoModeReqMsg>("tVideoPhalTask", {7}, c.fault != std::string("garbage")), c.reply);
      EXPECT_GE(_waited, c.waited);
      const std::string trace = traceLog.news();
      EXPECT_NE(trace.find(c.told), trace.npos) << trace;
      if (!c.next.empty()) usleep(50000); // the pipe is cleaned for a millisecond only
      EXPECT_EQ(ask<StreamControlReqMsg>("tStreamAppTask", {1, 1}), done);
      const std::string more = traceLog.news();
      EXPECT_NE(more.find(c.next), more.npos) << more;
    }
  }
  const std::string suffix = fault == "none" ? "\n" : " -> " + fault + "\n";
  EXPECT_EQ(_log.news().find("reply tVideoPhalTask SetVideoModeRespMsg status=0" + suffix) != std::string::npos,
            fault != "absent");
}

TEST_F(Services, ServeWhatWasSentLast) {
  const std::string file = testing::TempDir() + "sent-last-" + std::to_string(getpid());
  if (!onBoard("--log " + file)) {
    EXPECT_TRUE(IsSkipped() || contents(file).find("remote onoff=0 component=255\nlogging off\n") != std::string::npos);
    EXPECT_TRUE(IsSkipped() || unlink(file.c_str()) == 0);
    return;
  }
  // The task meets the end of the command while it still has this to do.
  const std::string task = "$(pgrep -f 'tev-servic[e] tAdminAppTask')";
  EXPECT_EQ(std::system(("kill -STOP " + task).c_str()), 0); // NOLINT: there is one thread, as below
  auto* off = new SetLoggingModeReqMsg(consoleId(), 0);
  off->SetComponent(255);
  off->SetRemote();
  (void)off->Send();
  EXPECT_EQ(std::system(("(sleep 0.2; kill -CONT " + task + ") &").c_str()), 0); // NOLINT
}

TEST_F(Services, FullQueueIsServedOnceTheTaskGoesOn) {
  if (!onBoard("--service tVideoPhalTask=full")) return;
  const struct {
    long type;
    char text[20];
  } message = {1, {}};
  EXPECT_EQ(msgsnd(98307, &message, sizeof message.text, IPC_NOWAIT), -1);
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_EQ(std::system("kill -CONT $(pgrep -f 'tev-servic[e] tVideoPhalTask')"), 0); // NOLINT: there is one thread
  EXPECT_EQ(ask<SetVideoModeReqMsg>("tVideoPhalTask", {7}), (std::vector<int>{0, 0}));
}

TEST_F(Services, CrashedTaskIsStartedAgainAndTold) {
  if (!onBoard("2>/dev/null")) return;
  EXPECT_EQ(std::system("kill -KILL $(pgrep -f 'tev-servic[e] tStreamAppTask')"), 0); // NOLINT: there is one thread
  std::string told;
  while ((told += _log.news()).empty()) // until then a message could still be handed to the one that dies
    usleep(1000);
  EXPECT_EQ(told, "service tStreamAppTask ended: signal 9\n");
  EXPECT_EQ(ask<StreamControlReqMsg>("tStreamAppTask", {1, 1}), (std::vector<int>{0, 0}));
}

} // namespace
