// Threads that are cancelled at any moment.
#include "tests/Elsewhere.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <random>

namespace {

/// How often each row of a table below is tried: as many times as TEV_STRESS_ROUNDS says, else `few`.
int rounds(int few) {
  const char* const asked = getenv("TEV_STRESS_ROUNDS");
  return asked != nullptr ? atoi(asked) : few;
}

/// Passes a random time of at most 200 microseconds without giving the processor away.
void pass() {
  static thread_local std::minstd_rand random(std::random_device{}());
  const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(random() % 201);
  while (std::chrono::steady_clock::now() < end) {
  }
}

std::atomic<bool> begun;

} // namespace

TEST(Cancel, ThreadsOnTheirWayOutMayBeCancelledOnceMore) {
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the clean-up code of the thread sanitizer does not stand asynchronous cancellation";
#endif
  const struct {
    const char* name;
    void (*run)();
  } table[] = {{"computes",
                [] {
                  for (begun = true;;) {
                  }
                }},
               {"sleeps",
                [] {
                  for (begun = true;;)
                    (void)krThreadSuspend(1);
                }},
               {"takes no signals",
                [] {
                  sigset_t all;
                  (void)sigfillset(&all);
                  (void)pthread_sigmask(SIG_SETMASK, &all, nullptr);
                  for (begun = true;;) {
                  }
                }},
               {"returns", [] { begun = true; }},
               {"exits", [] {
                  begun = true;
                  pthread_exit(nullptr);
                }}};
  testing::internal::CaptureStderr();
  (void)printed([&] {
    for (const auto& row : table)
      for (int round = rounds(50); round > 0; --round) {
        begun = false;
        const KrThreadId tid = spawn(row.run);
        waitUntil([] { return begun.load(); });
        for (int i = 0; i < 2; ++i) {
          pass();
          (void)krThreadDelete(tid); // it may have ended
        }
        ASSERT_EQ(krThreadAwaitEnd(tid), 0) << row.name;
      }
  });
  (void)testing::internal::GetCapturedStderr();
}

TEST(Cancel, AThreadThatBlocksRunsItsCleanUpHandlers) {
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the clean-up code of the thread sanitizer does not stand asynchronous cancellation";
#endif
  static std::atomic<int> cleaned{0};
  auto block = [] {
    pthread_cleanup_push([](void*) { ++cleaned; }, nullptr);
    begun = true;
    (void)krThreadSuspend(60'000);
    pthread_cleanup_pop(0);
  };
  testing::internal::CaptureStderr();
  (void)printed([&] {
    const KrThreadId tid = spawn(block);
    waitUntil([] { return begun.load(); });
    krThreadSuspend(50); // by now it sleeps
    EXPECT_EQ(krThreadDelete(tid) + krThreadAwaitEnd(tid), 0);
  });
  (void)testing::internal::GetCapturedStderr();
  EXPECT_EQ(cleaned, 1);
}
