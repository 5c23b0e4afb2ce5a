// Threads that are cancelled at any moment.
#include "platform/krFile.h"
#include "platform/krLog.h"
#include "platform/krMem.h"
#include "tests/Elsewhere.h"
#include "tests/Scratch.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <random>
#include <sys/stat.h>
#include <unistd.h>

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

auto openFiles() { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); }

using CancelInFiles = Scratch;

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

// Each call blocks for ever. Of two threads the first is cancelled last: the second may wait for what the first holds.
TEST_F(CancelInFiles, BlockedCallsCanBeCancelledAndLeaveNothingBehind) {
  int filled[2], fresh[2];
  ASSERT_EQ(pipe2(filled, O_NONBLOCK) + pipe(fresh), 0);
  while (write(filled[1], "x", 1) == 1) {
  }
  ASSERT_EQ(fcntl(filled[1], F_SETFL, 0), 0);
  static const int full = filled[1], empty = fresh[0];
  std::filesystem::create_directories("from");
  std::filesystem::create_directories("to");
  write("from/file", "x");
  ASSERT_EQ(mkfifo("fifo", 0600) + mkfifo("to/file", 0600), 0);
  write("rm", "#!/bin/sh\nexec sleep 100\n");
  ASSERT_EQ(chmod("rm", 0700) + setenv("PATH", ".:/bin:/usr/bin", 1), 0);
  krMemInit(1, 0);
  (void)krLogGetLogger("x");
  static const auto fullPath = format("/proc/self/fd/%d", full);
  const struct {
    const char* name;
    void (*call)();
  } table[] = {
      {"krReadFromSysFile",
       [] {
         char buffer[9];
         (void)krReadFromSysFile("fifo", buffer, 9);
       }},
      {"krWriteToSysFile, open", [] { (void)krWriteToSysFile("fifo", "x"); }},
      {"krWriteToSysFile, write", [] { (void)krWriteToSysFile(fullPath.c_str(), "x"); }},
      {"krFileCopy, read", [] { (void)krFileCopy("fifo", "x"); }},
      {"krFileCopy, write", [] { (void)krFileCopy("from/file", fullPath.c_str()); }},
      {"krDirCopy", [] { (void)krDirCopy("from", "to"); }},
      {"krDirList", [] { (void)krDirList(full, "from"); }},
      {"krDirDelete", [] { (void)krDirDelete("from"); }},
      {"krFdPrintf", [] { (void)krFdPrintf(full, "x"); }},
      {"fioRdString",
       [] {
         char buffer[9];
         (void)fioRdString(empty, buffer, 9);
       }},
      // From here on it is the console that takes nothing.
      {"krPrintf", [] { (void)krPrintf("%05000d", 1); }},
      {"krInfo", [] { krInfo(krLogGetLogger("x"), "x"); }},
      {"krLogList", [] { krLogList(); }},
      {"krMalloc", [] { krFree(krMalloc(0)); }},
      {"krFree", [] { krFree(reinterpret_cast<void*>(16)); }},
      {"krThreadSpawn",
       [] {
         const KrThreadEntry entry = [](auto...) { return 0; };
         (void)krThreadSpawn("x", KR_KEEP_PRIORITY, 0, entry, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);
       }},
  };
  static std::atomic<void (*)()> call{nullptr};
  static std::atomic<int> allowed{0};
  struct Caller {
    int number;
    void operator()() const {
      while (allowed < number)
        (void)krThreadSuspend(1);
      call.load()();
    }
  };
  Caller callers[] = {{1}, {2}};
  ASSERT_EQ(setvbuf(stdout, nullptr, _IONBF, 0), 0);
  testing::internal::CaptureStderr();
  (void)printed([&] {
    const int console = dup(STDOUT_FILENO);
    for (const auto& row : table) {
      SCOPED_TRACE(row.name);
      const auto before = openFiles();
      const uint32_t blocks = g_heap->inUse[0];
      call = row.call;
      allowed = 0;
      const KrThreadId tids[] = {spawn(callers[0]), spawn(callers[1])};
      (void)dup2(full, STDOUT_FILENO); // what fails now could not be reported
      for (int i = 0; i < 2; ++i) {
        ++allowed;
        krThreadSuspend(100); // by then it is blocked
      }
      const int second = krThreadDelete(tids[1]) + krThreadAwaitEnd(tids[1]);
      const int first = krThreadDelete(tids[0]) + krThreadAwaitEnd(tids[0]);
      EXPECT_NE(dup2(console, STDOUT_FILENO), -1);
      EXPECT_EQ(first + second, 0);
      EXPECT_EQ(openFiles(), before);
      EXPECT_EQ(g_heap->inUse[0], blocks);
    }
    (void)close(console);
  });
  (void)testing::internal::GetCapturedStderr();
}
