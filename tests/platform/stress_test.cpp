#include "tests/Threads.h"

#include "platform/krLog.h"
#include "platform/krMem.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <random>
#include <unistd.h>
#include <vector>

namespace {

std::atomic<long> wellFormed{0};

/// The messages below name their number twice.
void checkMessage(const char* message) {
  const std::string copy = message, number = copy.substr(0, copy.size() / 2);
  wellFormed += copy == number + ' ' + number;
}

} // namespace

// Lasts 2 seconds, or as many as TEV_STRESS_SECONDS says. A release that woke nobody would show as a wait of 20 seconds
// with its report on the console, or as a hang.
TEST(Stress, ManyThreadsOverLocksHeapAndLogger) {
  const char* const seconds = getenv("TEV_STRESS_SECONDS");
  krMemInit(1, 0);
  KrMutex* const mutex = krMutexCreate();
  KrReadWrite* const rw = krReadWriteCreate();
  KrSem* const sem = krSemCreate(2);
  KrLogger* const logger = krLogGetLogger("stress.one");
  krLogAddPrinter(logger, "check", checkMessage);
  std::atomic<bool> stop{false};
  std::atomic<int> locks{0}, messages{0}, inside{0};
  int guarded = 0, one = 0, two = 0;
  const auto work = [&](unsigned seed) {
    std::mt19937 random(seed);
    std::vector<std::pair<char*, size_t>> blocks(16, {nullptr, 0});
    while (!stop) {
      const int timeout = std::array{KR_WAIT_FOREVER, 60'000, KR_NO_WAIT}[random() % 3];
      if (lock(mutex, timeout) == 0) {
        ++locks, ++guarded;
        EXPECT_EQ(krMutexUnlock(mutex), 0);
      } else {
        EXPECT_EQ(timeout, KR_NO_WAIT);
      }
      if (random() % 16 == 0) { // these wait in milliseconds
        EXPECT_EQ(writeLock(rw), 0);
        ++one, ++two;
        EXPECT_EQ(krWriteUnlock(rw), 0);
      }
      EXPECT_EQ(readLock(rw), 0);
      EXPECT_EQ(one, two);
      EXPECT_EQ(krReadUnlock(rw), 0);
      EXPECT_EQ(krSemTake(sem, random() % 2 == 0 ? KR_WAIT_FOREVER : 60'000), 0);
      EXPECT_LE(++inside, 2);
      --inside;
      EXPECT_EQ(krSemGive(sem), 0);
      auto& [block, size] = blocks[random() % blocks.size()];
      const size_t kept = std::exchange(size, 1 + random() % 40'000);
      const char first = block != nullptr ? *block : 0;
      block = static_cast<char*>(krRealloc(block, size));
      EXPECT_EQ(std::string(block, std::min(kept, size)).find_first_not_of(first), std::string::npos);
      memset(block, static_cast<int>(random() % 256), size);
      const auto number = static_cast<unsigned>(random());
      krInfo(logger, "%u %u", number, number);
      ++messages;
      if (random() % 16 == 0)
        krLogAddPrinter(logger, "passing", [](const char*) { (void)krLogGetLogger("stress.one"); });
      if (random() % 16 == 0) krLogRemovePrinter(krLogGetLogger("stress"), "passing");
    }
    for (const auto& block : blocks)
      krFree(block.first);
    int state = PTHREAD_CANCEL_DISABLE;
    EXPECT_EQ(pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &state), 0);
    EXPECT_EQ(state, PTHREAD_CANCEL_ENABLE) << "as it was before all that waiting";
  };
  EXPECT_EQ(printed([&] {
              std::vector<std::thread> threads;
              for (unsigned seed = 1; seed <= 4; ++seed)
                threads.emplace_back(work, seed);
              (void)krThreadSuspend(1000 * (seconds != nullptr ? atoi(seconds) : 2));
              stop = true;
              for (auto& thread : threads)
                thread.join();
            }),
            "");
  EXPECT_GT(locks, 0);
  EXPECT_EQ(guarded, locks);
  EXPECT_EQ(krSemGetValue(sem), 2);
  EXPECT_EQ(wellFormed, messages);
  for (const char* kind : {"read", "write"}) // on a busy machine a thread may wait for a second among the others
    (void)unlink(format("/var/log/%sLockExcessiveWait%p.log", kind, static_cast<void*>(rw)).c_str());
  krLogReset();
  krMutexDestroy(mutex);
  krReadWriteDestroy(rw);
  krSemDestroy(sem);
  EXPECT_EQ(g_heap->largeInUse, 0u);
  EXPECT_EQ(g_heap->inUse[0], 0u);
}
