#include "platform/kr.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <thread>
#include <vector>

namespace {

int lock(KrMutex* mutex, int timeoutMs) { return krMutexLockDebug(mutex, timeoutMs, __FILE__, __LINE__, __func__, ""); }

/// Runs `work` on another thread to its end and returns its result.
template <class Work>
int elsewhere(Work work) {
  int result = 0;
  std::thread([&] { result = work(); }).join();
  return result;
}

int errnoOf(int result) { return result == -1 ? errno : 0; }

} // namespace

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
  const int types[] = {PTHREAD_CANCEL_DEFERRED, PTHREAD_CANCEL_ASYNCHRONOUS};
  struct Job {
    KrMutex* mutex;
    int type;
    std::atomic<bool> started{false};
  };
  for (const int type : types) {
    Job job{mutex, type};
    pthread_t waiter;
    ASSERT_EQ(pthread_create(
                  &waiter, nullptr,
                  [](void* argument) -> void* {
                    auto& own = *static_cast<Job*>(argument);
                    (void)pthread_setcanceltype(own.type, nullptr);
                    own.started = true;
                    (void)lock(own.mutex, KR_WAIT_FOREVER);
                    return nullptr;
                  },
                  &job),
              0);
    while (!job.started)
      krThreadSuspend(1);
    krThreadSuspend(50);
    ASSERT_EQ(pthread_cancel(waiter), 0);
    void* result = nullptr;
    ASSERT_EQ(pthread_join(waiter, &result), 0); // while the mutex is still held here
    EXPECT_EQ(result, PTHREAD_CANCELED);
  }
  EXPECT_EQ(krMutexUnlock(mutex), 0);
  EXPECT_EQ(elsewhere([&] { return lock(mutex, 60'000) + krMutexUnlock(mutex); }), 0);
  krMutexDestroy(mutex); // would wait for a waiter that is still counted
}
