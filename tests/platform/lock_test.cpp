#include "tests/Threads.h"

#include <climits>
#include <unistd.h>
#include <vector>

namespace {

int relock(KrMutex* mutex) { return lock(mutex, KR_NO_WAIT) == 0 ? krMutexUnlock(mutex) : -1; }
int readAndUnlock(KrReadWrite* rw) { return readLock(rw) == 0 ? krReadUnlock(rw) : -1; }
int writeAndUnlock(KrReadWrite* rw) { return writeLock(rw) == 0 ? krWriteUnlock(rw) : -1; }

int giveAndTake(KrSem* sem) { return krSemGive(sem) == 0 ? krSemTake(sem, KR_NO_WAIT) : -1; }

constexpr char stampShape[] = R"([0-9/]{5} [0-9:]{8}\.[0-9]{2} \[[0-9]+\] )";

bool mayReport() { return access("/var/log", W_OK) == 0; }

} // namespace

TEST(Mutex, RecursionOwnershipAndFailures) {
  KrMutex* const mutex = krMutexCreate();
  for (const int timeout : {KR_WAIT_FOREVER, KR_NO_WAIT, 50}) {
    EXPECT_EQ(errnoOf(lock(nullptr, timeout)), KR_ERR_INVALID);
    ASSERT_EQ(lock(mutex, timeout), 0);
  }
  EXPECT_EQ(errnoOf(krMutexUnlock(nullptr)), KR_ERR_INVALID);
  EXPECT_EQ(onAnotherThread([&] { return errnoOf(krMutexUnlock(mutex)); }), EPERM);
  EXPECT_EQ(onAnotherThread([&] { return errnoOf(lock(mutex, -7)); }), KR_ERR_TIMEOUT);
  KrTime start{}, end{};
  (void)krGetTime(&start);
  EXPECT_EQ(onAnotherThread([&] { return errnoOf(lock(mutex, 100)); }), KR_ERR_TIMEOUT);
  (void)krGetTime(&end);
  EXPECT_GE(krDiffTime(start, end), 99u); // the deadline is cut to a millisecond
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(onAnotherThread([&] { return errnoOf(relock(mutex)); }), EBUSY);
    EXPECT_EQ(krMutexUnlock(mutex), 0);
  }
  EXPECT_EQ(krMutexUnlock(mutex), 0); // the owner stays recorded
  EXPECT_EQ(onAnotherThread([&] { return relock(mutex); }), 0);
  EXPECT_EQ(krMutexUnlock(mutex), -1); // now the other thread is
  ASSERT_EQ(lock(mutex, KR_WAIT_FOREVER), 0);
  krMutexDestroy(mutex); // held by the destroyer
  krMutexDestroy(nullptr);
}

// Takes 40 seconds: the interval between reports is part of what is promised.
TEST(Mutex, ExcessiveWaitIsReportedEveryTwentySeconds) {
  if (!mayReport()) GTEST_SKIP() << "/var/log is not writable";
  KrMutex* const mutex = krMutexCreate();
  ASSERT_EQ(lock(mutex, KR_WAIT_FOREVER), 0);
  std::atomic<KrThreadId> waiter{0};
  std::string path, report;
  const std::string console = printed([&] {
    std::thread thread([&] {
      waiter = krThreadIdSelf();
      EXPECT_EQ(lock(mutex, KR_WAIT_FOREVER), 0);
      EXPECT_EQ(krMutexUnlock(mutex), 0);
    });
    waitUntil([&] { return waiter != 0; });
    path = format("/var/log/mutexExcessiveWaitTid%d.log", static_cast<int>(waiter));
    for (int second = 0; second < 100 && report.find("(40s)") == std::string::npos; ++second) {
      (void)krThreadSuspend(1000);
      report = contents(path);
    }
    EXPECT_EQ(krMutexUnlock(mutex), 0);
    thread.join();
  });
  const auto expected = [&](int seconds) {
    return stampShape +
           format("krMutexLock: Excessive wait \\(%ds\\) for Mutex\\[%p\\], File\\[a\\.cpp\\], Line\\[7\\], "
                  "Func\\[f\\], Desc\\[d\\], owner\\[%d\\]\n(.*0x.*\n)+",
                  seconds, static_cast<void*>(mutex), static_cast<int>(krThreadIdSelf()));
  };
  EXPECT_TRUE(matches(report, expected(40)));
  EXPECT_TRUE(matches(console, expected(20) + expected(40)));
  EXPECT_EQ(unlink(path.c_str()), 0);
  krMutexDestroy(mutex);
}

// For all kinds of locks: a waiter that is cancelled leaves nothing behind, one that waits at the end is sent away.
TEST(Locks, WaitersCanBeCancelledOrSentAway) {
  KrMutex* const mutex = krMutexCreate();
  KrReadWrite *const read = krReadWriteCreate(), *const written = krReadWriteCreate();
  KrSem* const sem = krSemCreate(0);
  const struct {
    std::function<int()> take, wait, waitToo, giveBack, takeAndGiveBack;
    std::function<void()> destroy;
  } table[] = {
      {[=] { return lock(mutex, KR_NO_WAIT); }, [=] { return lock(mutex, KR_WAIT_FOREVER); },
       [=] { return lock(mutex, 60'000); }, [=] { return krMutexUnlock(mutex); }, [=] { return relock(mutex); },
       [=] { krMutexDestroy(mutex); }},
      {[=] { return readLock(read); }, [=] { return writeLock(read); }, [=] { return writeLock(read); },
       [=] { return krReadUnlock(read); }, [=] { return readAndUnlock(read); }, [=] { krReadWriteDestroy(read); }},
      {[=] { return writeLock(written); }, [=] { return readLock(written); }, [=] { return writeLock(written); },
       [=] { return krWriteUnlock(written); }, [=] { return writeAndUnlock(written); },
       [=] { krReadWriteDestroy(written); }},
      {[] { return 0; }, [=] { return krSemTake(sem, KR_WAIT_FOREVER); }, [=] { return krSemTake(sem, 60'000); },
       [] { return 0; }, [=] { return giveAndTake(sem); }, [=] { krSemDestroy(sem); }},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(&row - table);
    ASSERT_EQ(row.take(), 0);
    expectCancellable([&] { (void)row.wait(); });
    EXPECT_EQ(row.giveBack(), 0);
    EXPECT_EQ(onAnotherThread(row.takeAndGiveBack), 0);
    ASSERT_EQ(row.take(), 0);
    std::thread a([&] { EXPECT_EQ(errnoOf(row.wait()), KR_ERR_INVALID); });
    std::thread b([&] { EXPECT_EQ(errnoOf(row.waitToo()), KR_ERR_INVALID); });
    krThreadSuspend(200); // for them to wait: who came later would come to a released block
    row.destroy();
    a.join();
    b.join();
  }
}

TEST(ReadWrite, RecursionAndOwnership) {
  KrReadWrite* const rw = krReadWriteCreate();
  EXPECT_EQ(errnoOf(krReadUnlock(rw)), EPERM);
  EXPECT_EQ(errnoOf(krWriteUnlock(rw)), EPERM);
  for (int i = 0; i < 2; ++i)
    EXPECT_EQ(writeLock(rw), 0);
  EXPECT_EQ(errnoOf(readLock(rw)), KR_ERR_INVALID);
  EXPECT_EQ(onAnotherThread([&] { return errnoOf(krWriteUnlock(rw)); }), EPERM);
  std::atomic<bool> in{false};
  std::thread reader([&] {
    EXPECT_EQ(readAndUnlock(rw), 0);
    in = true;
  });
  for (int i = 0; i < 2; ++i) {
    krThreadSuspend(50);
    EXPECT_FALSE(in) << "before both write locks are given back";
    EXPECT_EQ(krWriteUnlock(rw), 0);
  }
  reader.join();
  for (const auto take : {readLock, writeLock, readLock}) // the only reader may write, and has its slot already
    EXPECT_EQ(take(rw), 0);
  EXPECT_EQ(krWriteUnlock(rw), 0);
  EXPECT_EQ(onAnotherThread([&] { return readAndUnlock(rw); }), 0); // beside the reader
  for (int i = 0; i < 2; ++i)
    EXPECT_EQ(krReadUnlock(rw), 0);
  EXPECT_EQ(onAnotherThread([&] { return writeAndUnlock(rw); }), 0);
  krReadWriteDestroy(rw);
  for (const auto call : {krReadUnlock, krWriteUnlock, readLock, writeLock})
    EXPECT_EQ(errnoOf(call(nullptr)), KR_ERR_INVALID);
  krReadWriteDestroy(nullptr);
}

TEST(ReadWrite, WritersGoBeforeNewReadersAndTwentyReadersAreRoomForNoMore) {
  KrReadWrite* const rw = krReadWriteCreate();
  ASSERT_EQ(readLock(rw), 0);
  std::atomic<int> arrivals{0}, refused{0};
  std::vector<std::thread> others;
  others.emplace_back([&] {
    EXPECT_EQ(writeLock(rw), 0);
    EXPECT_EQ(arrivals++, 0) << "the writer is the first";
    EXPECT_EQ(krWriteUnlock(rw), 0);
  });
  krThreadSuspend(100); // for the writer to wait
  for (int i = 0; i < 20; ++i)
    others.emplace_back([&] {
      arrivals += readLock(rw) == 0;
      waitUntil([&] { return refused != 0; });
      (void)krReadUnlock(rw);
    });
  krThreadSuspend(50);
  EXPECT_EQ(arrivals, 0);
  EXPECT_EQ(readAndUnlock(rw), 0); // but who reads already gets it again
  EXPECT_EQ(krReadUnlock(rw), 0);
  waitUntil([&] { return arrivals == 21; });
  refused = errnoOf(readLock(rw));
  for (auto& other : others)
    other.join();
  EXPECT_EQ(refused, KR_ERR_NO_MEMORY);
  EXPECT_EQ(readAndUnlock(rw), 0);
  krReadWriteDestroy(rw);
}

TEST(ReadWrite, ExcessiveWaitsAreReportedToFiles) {
  if (!mayReport()) GTEST_SKIP() << "/var/log is not writable";
  KrReadWrite* const rw = krReadWriteCreate();
  const int self = static_cast<int>(krThreadIdSelf());
  const struct {
    const char *prefix, *function, *place;
    int writer, reader, waiting;
    int (*hold)(KrReadWrite*);
    int (*letGo)(KrReadWrite*);
    int (*wait)(KrReadWrite*);
  } table[] = {{"write", "krWriteLock", "9], Func[w", 0, self, 1, readLock, krReadUnlock, writeAndUnlock},
               {"read", "krReadLock", "8], Func[r", self, 0, 0, writeLock, krWriteUnlock, readAndUnlock}};
  for (const auto& row : table) {
    const std::string path = format("/var/log/%sLockExcessiveWait%p.log", row.prefix, static_cast<void*>(rw));
    ASSERT_EQ(row.hold(rw), 0);
    EXPECT_EQ(printed([&] {
                std::thread waiter([&] { EXPECT_EQ(row.wait(rw), 0); });
                waitUntil([&] { return contents(path).find('\n') != std::string::npos; });
                EXPECT_EQ(row.letGo(rw), 0);
                waiter.join();
              }),
              "");
    const std::string report = contents(path);
    EXPECT_TRUE(matches(report.substr(0, report.find("kr")), stampShape));
    EXPECT_EQ(report.substr(report.find("kr")),
              format("%s: Excessive wait for lock[%p], File[b.cpp], Line[%s], waiting[%d], writer[%d], reader0[%d], "
                     "reader1[0], reader2[0], reader3[0], reader4[0]\n",
                     row.function, static_cast<void*>(rw), row.place, row.waiting, row.writer, row.reader));
    EXPECT_EQ(unlink(path.c_str()), 0);
  }
  krReadWriteDestroy(rw);
}

TEST(Semaphore, CountsAndFails) {
  KrSem* const sem = krSemBinaryCreate(2); // not capped at 1
  for (const int timeout : {KR_NO_WAIT, 10})
    EXPECT_EQ(krSemTake(sem, timeout), 0);
  EXPECT_EQ(krSemGetValue(sem), 0);
  EXPECT_EQ(errnoOf(krSemTake(sem, KR_NO_WAIT)), EAGAIN);
  EXPECT_EQ(errnoOf(krSemTake(sem, 50)), KR_ERR_TIMEOUT);
  EXPECT_EQ(errnoOf(krSemTake(sem, -9)), KR_ERR_TIMEOUT);
  EXPECT_EQ(giveAndTake(sem), 0);
  krSemFlush(sem);
  krSemDestroy(sem);
  KrSem* const full = krSemCreate(INT_MAX);
  EXPECT_EQ(errnoOf(krSemGive(full)), EOVERFLOW);
  krSemDestroy(full);
  EXPECT_EQ(krSemCreate(UINT_MAX), nullptr);
  EXPECT_EQ(errno, EINVAL);
  for (const auto call : {krSemGive, krSemGetValue})
    EXPECT_EQ(errnoOf(call(nullptr)), KR_ERR_INVALID);
  EXPECT_EQ(errnoOf(krSemTake(nullptr, 10)), KR_ERR_INVALID);
  krSemFlush(nullptr);
  krSemDestroy(nullptr);
}

TEST(Condition, WaitGivesTheMutexUp) {
  KrMutex* const mutex = krMutexCreate();
  KrCond* const cond = krCondCreate();
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(errnoOf(krCondWait(cond, mutex)), EPERM); // not locked
  ASSERT_EQ(lock(mutex, KR_WAIT_FOREVER), 0);
  bool ready = false;
  std::thread setter([&] {
    EXPECT_EQ(lock(mutex, KR_WAIT_FOREVER), 0);
    ready = true;
    EXPECT_EQ(krMutexUnlock(mutex), 0);
    EXPECT_EQ(krCondSignal(cond), 0);
  });
  for (int round = 0; !ready || round < 25; ++round)
    ASSERT_EQ(krCondWait(cond, mutex), 0); // beyond the 20 slots too
  setter.join();
  EXPECT_EQ(onAnotherThread([&] { return errnoOf(krCondWait(cond, mutex)); }), EPERM);
  EXPECT_EQ(onAnotherThread([&] { return errnoOf(relock(mutex)); }), EBUSY); // still this thread's
  EXPECT_EQ(krCondTimedWait(cond, mutex, 10), -1);
  EXPECT_EQ(errnoOf(krCondWait(nullptr, mutex)), KR_ERR_INVALID);
  EXPECT_EQ(errnoOf(krCondWait(cond, nullptr)), KR_ERR_INVALID);
  EXPECT_EQ(errnoOf(krCondSignal(nullptr)), KR_ERR_INVALID);
  krCondDestroy(cond);
  EXPECT_EQ(errno, 0);
  krCondDestroy(nullptr);
  EXPECT_EQ(errno, KR_ERR_INVALID);
  krMutexDestroy(mutex);
}
