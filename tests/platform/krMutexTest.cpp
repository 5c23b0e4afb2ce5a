#include "tests/platform/Elsewhere.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <unistd.h>
#include <vector>

TEST(Mutex, FailuresLeaveTheirReason) {
  KrMutex* const mutex = krMutexCreate();
  ASSERT_NE(mutex, nullptr);
  for (const int timeout : {KR_WAIT_FOREVER, KR_NO_WAIT, 100}) {
    EXPECT_EQ(errnoOf(lock(nullptr, timeout)), KR_ERR_INVALID);
    EXPECT_EQ(lock(mutex, timeout), 0);
    EXPECT_EQ(krMutexUnlock(mutex), 0);
  }
  EXPECT_EQ(errnoOf(krMutexUnlock(nullptr)), KR_ERR_INVALID);
  ASSERT_EQ(lock(mutex, KR_WAIT_FOREVER), 0);
  EXPECT_EQ(elsewhere([&] { return errnoOf(lock(mutex, KR_NO_WAIT)); }), EBUSY);
  EXPECT_EQ(elsewhere([&] { return errnoOf(lock(mutex, -7)); }), KR_ERR_TIMEOUT);
  EXPECT_EQ(elsewhere([&] { return krMutexUnlock(mutex); }), -1);
  EXPECT_EQ(elsewhere([&] {
              KrTime start{}, end{};
              krGetTime(&start);
              const int error = errnoOf(lock(mutex, 100));
              krGetTime(&end);
              return krDiffTime(start, end) >= 99 ? error : -1; // the deadline is cut to a millisecond
            }),
            KR_ERR_TIMEOUT);
  EXPECT_EQ(krMutexUnlock(mutex), 0);
  EXPECT_EQ(elsewhere([&] { return lock(mutex, 100) + krMutexUnlock(mutex); }), 0);
  krMutexDestroy(mutex);
  krMutexDestroy(nullptr);
}

TEST(Mutex, IsRecursive) {
  KrMutex* const mutex = krMutexCreate();
  for (int i = 0; i < 3; ++i)
    ASSERT_EQ(lock(mutex, i == 1 ? KR_NO_WAIT : 50), 0);
  const auto isFree = [&] {
    return elsewhere([&] { return lock(mutex, KR_NO_WAIT) == 0 ? krMutexUnlock(mutex) : -1; });
  };
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(isFree(), -1);
    EXPECT_EQ(krMutexUnlock(mutex), 0);
  }
  EXPECT_EQ(krMutexUnlock(mutex), 0); // the owner stays recorded
  EXPECT_EQ(isFree(), 0);
  EXPECT_EQ(krMutexUnlock(mutex), -1); // now it is somebody else
  ASSERT_EQ(lock(mutex, KR_WAIT_FOREVER), 0);
  krMutexDestroy(mutex); // held by the destroyer
}

// A release that wakes nobody would cost a waiter 20 seconds and a report on the console.
TEST(Mutex, NoReleaseIsMissed) {
  KrMutex* const mutex = krMutexCreate();
  constexpr int threads = 4, rounds = 20'000;
  long counter = 0;
  testing::internal::CaptureStdout();
  std::vector<std::thread> all;
  for (int i = 0; i < threads; ++i)
    all.emplace_back([&, i] {
      for (int round = 0; round < rounds; ++round) {
        while (lock(mutex, i % 2 == 0 ? KR_WAIT_FOREVER : 60'000) != 0)
          ADD_FAILURE();
        ++counter;
        krMutexUnlock(mutex);
      }
    });
  for (auto& thread : all)
    thread.join();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(counter, long{threads} * rounds);
  krMutexDestroy(mutex);
}

TEST(Mutex, DestroyingSendsWaitersAway) {
  KrMutex* const mutex = krMutexCreate();
  ASSERT_EQ(lock(mutex, KR_WAIT_FOREVER), 0);
  std::atomic<int> sentAway{0}, arrived{0};
  std::vector<std::thread> waiters;
  for (const int timeout : {KR_WAIT_FOREVER, 60'000, KR_WAIT_FOREVER})
    waiters.emplace_back([&, timeout] {
      ++arrived;
      sentAway += errnoOf(lock(mutex, timeout)) == KR_ERR_INVALID;
    });
  while (arrived != 3)
    krThreadSuspend(1);
  krThreadSuspend(200); // for them to wait: one that came later would come to a released block
  krMutexDestroy(mutex);
  for (auto& waiter : waiters)
    waiter.join();
  EXPECT_EQ(sentAway, 3);
}

TEST(Mutex, CancelledWaiterLeavesNothingBehind) {
  KrMutex* const mutex = krMutexCreate();
  ASSERT_EQ(lock(mutex, KR_WAIT_FOREVER), 0);
  for (const int type : {PTHREAD_CANCEL_DEFERRED, PTHREAD_CANCEL_ASYNCHRONOUS}) {
    Cancellable waiter(type, [=] { (void)lock(mutex, KR_WAIT_FOREVER); });
    krThreadSuspend(50);
    EXPECT_TRUE(waiter.cancel()); // while the mutex is still held here
  }
  EXPECT_EQ(krMutexUnlock(mutex), 0);
  EXPECT_EQ(elsewhere([&] { return lock(mutex, 60'000) + krMutexUnlock(mutex); }), 0);
  krMutexDestroy(mutex); // would wait for a waiter that is still counted
}

// Takes 40 seconds: the interval between reports is part of what is promised.
TEST(Mutex, ExcessiveWaitIsReportedEveryTwentySeconds) {
  if (access("/var/log", W_OK) != 0) GTEST_SKIP() << "/var/log is not writable";
  KrMutex* const mutex = krMutexCreate();
  ASSERT_EQ(lock(mutex, KR_WAIT_FOREVER), 0);
  std::atomic<KrThreadId> waiter{0};
  testing::internal::CaptureStdout();
  std::thread thread([&] {
    waiter = krThreadIdSelf();
    EXPECT_EQ(lock(mutex, KR_WAIT_FOREVER), 0);
    EXPECT_EQ(krMutexUnlock(mutex), 0);
  });
  waitUntil([&] { return waiter != 0; });
  const auto printed = [](KrThreadId tid) { return std::to_string(static_cast<int>(tid)); };
  const std::string path = "/var/log/mutexExcessiveWaitTid" + printed(waiter) + ".log";
  std::string report;
  for (int second = 0; second < 100 && report.find("(40s)") == std::string::npos; ++second) {
    krThreadSuspend(1000);
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    report = text.str();
  }
  EXPECT_EQ(krMutexUnlock(mutex), 0);
  thread.join();
  EXPECT_EQ(unlink(path.c_str()), 0);
  std::ostringstream address;
  address << static_cast<const void*>(mutex);
  const auto expected = [&](const char* seconds) {
    return R"([0-9/]{5} [0-9:]{8}\.[0-9]{2} \[)" + std::to_string(static_cast<uint32_t>(waiter)) +
           R"(\] krMutexLock: Excessive wait \()" + seconds + R"(s\) for Mutex\[)" + address.str() +
           R"(\], File\[a\.cpp\], Line\[7\], Func\[f\], Desc\[d\], owner\[)" + printed(krThreadIdSelf()) +
           "\\]\n(.*0x.*\n)+";
  };
  EXPECT_TRUE(matches(report, expected("40"))) << report;
  const std::string console = testing::internal::GetCapturedStdout();
  EXPECT_TRUE(matches(console, expected("20") + expected("40"))) << console;
  krMutexDestroy(mutex);
}
