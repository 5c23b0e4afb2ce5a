// The service tasks, asked by an endpoint of our own: real messages on real queues.
#include "messaging/AdminControlReqMsg.h"
#include "messaging/CommObj.h"
#include "messaging/GetVideoResolutionReqMsg.h"
#include "messaging/GetVideoResolutionRespMsg.h"
#include "messaging/ProxyCommObj.h"
#include "messaging/SetAudioSourceReqMsg.h"
#include "messaging/SetLoggingModeReqMsg.h"
#include "messaging/SetVideoModeReqMsg.h"
#include "messaging/SetVideoResolutionReqMsg.h"
#include "messaging/StreamControlReqMsg.h"
#include "messaging/TakeSnapshotReqMsg.h"
#include "sim/Appliance.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using sim::ServiceTask;
using Clock = std::chrono::steady_clock;

std::string contents(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

// Each test runs on a board of its own: outside, it only starts itself there.
class Services : public testing::Test {
protected:
  // True on the board. Outside it runs the test there and tells how that went.
  bool onBoard(const std::string& options = "") {
    if (std::getenv("TEV_ON_BOARD") != nullptr) { // NOLINT(concurrency-mt-unsafe): there is one thread
      CommObj::SetKey(153190);
      mConsole = new CommObj("tCliAppTask"); // the process is all there is to clean up
      return true;
    }
    const std::string sim = TEV_SIM_PROGRAM " --frozen ";
    if (run(sim + "--probe") == 125) {
      skip();
    } else {
      const auto* test = testing::UnitTest::GetInstance()->current_test_info();
      const std::string self = std::string(test->test_suite_name()) + "." + test->name();
      EXPECT_EQ(run("TEV_ON_BOARD=1 " + sim + options + " -- /proc/" + std::to_string(getpid()) +
                    "/exe --gtest_filter=" + self),
                0);
    }
    return false;
  }

  unsigned long consoleId() const { return mConsole->GetTaskId(); }

  // Sends a request like the console does. The reply's words; none if there was no reply.
  template <class Request>
  std::vector<int> ask(const char* task, const std::vector<uint16_t>& words = {}) {
    auto* request = new Request(ProxyCommObj("tCliAppTask").Tid(), ProxyCommObj(task).Tid());
    std::copy(words.begin(), words.end(), static_cast<MsgImage*>(request->image())->words);
    request->SetSync();
    request->SetRemote();
    const Clock::time_point start = Clock::now();
    const std::unique_ptr<MsgObj> reply(request->Send());
    mWaited = std::chrono::duration<double>(Clock::now() - start).count();
    if (!reply) return {};
    const auto* image = static_cast<const MsgImage*>(reply->image());
    EXPECT_EQ(image->dstTid, consoleId());
    return {image->words, image->words + (reply->size() - MsgImage::headerSize) / 2};
  }

  // The lines of the board's log that are new.
  std::string log() {
    const std::string all = contents("/var/log/board.log");
    return all.substr(std::exchange(mSeen, all.size()));
  }

  double mWaited = 0; // for the last reply, in seconds

private:
  static int run(const std::string& line) {
    const int status = std::system(line.c_str()); // NOLINT(concurrency-mt-unsafe): there is one thread
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  static void skip() { GTEST_SKIP() << "no stand-in board here"; }

  CommObj* mConsole = nullptr;
  size_t mSeen = 0;
};

TEST_F(Services, AnswerEveryRequest) {
  if (!onBoard()) return;
  EXPECT_EQ(ask<SetVideoModeReqMsg>("tVideoPhalTask", {8}), (std::vector<int>{0, 0}));
  EXPECT_EQ(ask<SetVideoResolutionReqMsg>("tVideoPhalTask", {640, 480, 1, 30}), (std::vector<int>{0, 0}));
  EXPECT_EQ(ask<GetVideoResolutionReqMsg>("tVideoPhalTask"), (std::vector<int>{0, 640, 480, 1, 30, 0}));
  EXPECT_EQ(ask<SetAudioSourceReqMsg>("tVideoPhalTask", {2}), (std::vector<int>{0, 0}));
  EXPECT_EQ(ask<TakeSnapshotReqMsg>("tVideoPhalTask", {3, 4}), (std::vector<int>{0, 0}));
  EXPECT_EQ(ask<StreamControlReqMsg>("tStreamAppTask", {1, 3}), (std::vector<int>{0, 0}));
  EXPECT_EQ(ask<AdminControlReqMsg>("tAdminAppTask", {4}), (std::vector<int>{0, 0}));
}

} // namespace
