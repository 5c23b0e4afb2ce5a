#include "tests/Threads.h"

#include "platform/CKrThread.h"
#include "platform/internal/Uncancelled.h"

#include <memory>

namespace {

std::string warned;

/// Counts, in memory of its own, until it is cancelled, which it can be between any two counts, or told to stop.
class Counter : public CKrThread {
public:
  ~Counter() override { kill(); }
  void run() override {
    do
      kr::uncancelled([this] {
        running = true;
        (void)krThreadSuspend(20);
        *count += 1;
      });
    while (endless);
  }
  std::unique_ptr<std::atomic<long>> count = std::make_unique<std::atomic<long>>(0);
  std::atomic<bool> running{false};
  bool endless = true;
};

} // namespace

TEST(ObjectThread, StartsOnceUntilKilled) {
  krLogAddPrinter(krLogGetLogger("comps.kr"), "test", [](const char* message) { warned += message; });
  auto counter = std::make_unique<Counter>();
  int priority = 7;
  EXPECT_EQ(errnoOf(counter->getPriority(&priority)), ESRCH);
  EXPECT_EQ(errnoOf(counter->setPriority(256)), KR_ERR_PRIORITY);
  counter->kill();
  for (int life = 0; life < 3; ++life) {
    counter->start("counter", KR_KEEP_PRIORITY, 0);
    waitUntil([&] { return counter->running.load(); });
    EXPECT_EQ(counter->setPriority(KR_KEEP_PRIORITY), 0);
    EXPECT_EQ(counter->pause(), 0);
    EXPECT_EQ(counter->getPriority(&priority), 0);
    EXPECT_EQ(priority, 256); // under the policy it inherited
    warned.clear();
    counter->start("counter", KR_KEEP_PRIORITY, 0);
    EXPECT_EQ(warned, "Trying to restart  - ignored");
    EXPECT_STREQ(counter->getName(), "");
    EXPECT_EQ(counter->resume(), -1);
    counter->kill();
    const long count = *counter->count;
    (void)krThreadSuspend(50);
    EXPECT_EQ(*counter->count, count); // it has stopped, not only been told to
    counter->running = false;
  }
  counter->start("counter", KR_KEEP_PRIORITY, 0);
  counter.reset(); // ends the thread before what it uses goes
}

TEST(ObjectThread, IsKnownWhoeverIsCancelledWhileStartingIt) {
  if (!cancelsAnywhere) GTEST_SKIP() << notAnywhere;
  quietly([] {
    for (int round = 0; round < 50; ++round) {
      Counter counter;
      auto start = [&] { counter.start("counter", KR_KEEP_PRIORITY, 0); };
      const KrThreadId starter = spawn(start);
      while (!counter.running) {
      }
      cancelAndAwait(starter);
      int priority = 7;
      ASSERT_EQ(counter.getPriority(&priority), 0);
    }
  });
}

TEST(ObjectThread, StaysStartedWhenItEndsByItself) {
  krLogAddPrinter(krLogGetLogger("comps.kr"), "test", [](const char* message) { warned += message; });
  Counter counter;
  counter.endless = false;
  counter.start("counter", KR_KEEP_PRIORITY, 0);
  waitUntil([&] { return counter.running.load(); });
  int priority = 7;
  waitUntil([&] { return counter.getPriority(&priority) == -1; });
  counter.start("counter", KR_KEEP_PRIORITY, 0);
  EXPECT_EQ(warned, "Trying to restart  - ignored");
  // Its handle may be another's by now, who must not be hit.
  Counter other;
  other.start("other", KR_KEEP_PRIORITY, 0);
  waitUntil([&] { return other.running.load(); });
  counter.kill();
  EXPECT_EQ(other.getPriority(&priority), 0);
}
