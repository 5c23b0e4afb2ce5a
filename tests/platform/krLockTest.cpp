#include "tests/platform/Elsewhere.h"

#include <climits>
#include <fstream>
#include <sstream>
#include <unistd.h>
#include <vector>

namespace {

constexpr int cancelTypes[] = {PTHREAD_CANCEL_DEFERRED, PTHREAD_CANCEL_ASYNCHRONOUS};

int readAndUnlock(KrReadWrite* rw) { return readLock(rw) == 0 ? krReadUnlock(rw) : -1; }
int writeAndUnlock(KrReadWrite* rw) { return writeLock(rw) == 0 ? krWriteUnlock(rw) : -1; }

} // namespace

TEST(ReadWrite, RecursionAndOwnership) {
  KrReadWrite* const rw = krReadWriteCreate();
  ASSERT_NE(rw, nullptr);
  EXPECT_EQ(errnoOf(krReadUnlock(rw)), EPERM);
  EXPECT_EQ(errnoOf(krWriteUnlock(rw)), EPERM);
  EXPECT_EQ(writeLock(rw), 0);
  EXPECT_EQ(writeLock(rw), 0);
  EXPECT_EQ(errnoOf(readLock(rw)), KR_ERR_INVALID);
  EXPECT_EQ(krWriteUnlock(rw), 0);
  EXPECT_EQ(elsewhere([&] { return errnoOf(krWriteUnlock(rw)); }), EPERM);
  std::atomic<bool> in{false};
  std::thread reader([&] {
    EXPECT_EQ(readLock(rw), 0);
    in = true;
    EXPECT_EQ(krReadUnlock(rw), 0);
  });
  krThreadSuspend(50);
  EXPECT_FALSE(in); // one of two write locks is left
  EXPECT_EQ(krWriteUnlock(rw), 0);
  reader.join();
  EXPECT_EQ(readLock(rw), 0);
  EXPECT_EQ(writeLock(rw), 0); // the only reader
  EXPECT_EQ(readLock(rw), 0);  // has its slot already
  EXPECT_EQ(krWriteUnlock(rw), 0);
  EXPECT_EQ(elsewhere([&] { return readAndUnlock(rw); }), 0); // reads beside the reader
  EXPECT_EQ(krReadUnlock(rw), 0);
  EXPECT_EQ(krReadUnlock(rw), 0);
  EXPECT_EQ(elsewhere([&] { return writeAndUnlock(rw); }), 0);
  krReadWriteDestroy(rw);
  for (const auto call : {krReadUnlock, krWriteUnlock, readLock, writeLock})
    EXPECT_EQ(errnoOf(call(nullptr)), KR_ERR_INVALID);
  krReadWriteDestroy(nullptr);
}

TEST(ReadWrite, WritersGoBeforeNewReaders) {
  KrReadWrite* const rw = krReadWriteCreate();
  ASSERT_EQ(readLock(rw), 0);
  std::atomic<int> order{0};
  int writerCame = 0, readerCame = 0;
  std::thread writer([&] {
    EXPECT_EQ(writeLock(rw), 0);
    writerCame = ++order;
    EXPECT_EQ(krWriteUnlock(rw), 0);
  });
  krThreadSuspend(100); // for the writer to wait
  std::thread reader([&] {
    EXPECT_EQ(readLock(rw), 0);
    readerCame = ++order;
    EXPECT_EQ(krReadUnlock(rw), 0);
  });
  krThreadSuspend(50);
  EXPECT_EQ(order, 0);
  EXPECT_EQ(readLock(rw), 0); // but who reads already gets it again
  EXPECT_EQ(krReadUnlock(rw), 0);
  EXPECT_EQ(krReadUnlock(rw), 0);
  writer.join();
  reader.join();
  EXPECT_EQ(writerCame, 1);
  EXPECT_EQ(readerCame, 2);
  krReadWriteDestroy(rw);
}

TEST(ReadWrite, TwentyReadersAreRoomForNoMore) {
  KrReadWrite* const rw = krReadWriteCreate();
  std::atomic<int> reading{0};
  std::atomic<bool> go{false};
  std::vector<std::thread> readers;
  for (int i = 0; i < 20; ++i)
    readers.emplace_back([&] {
      EXPECT_EQ(readLock(rw), 0);
      ++reading;
      waitUntil([&] { return go.load(); });
      EXPECT_EQ(krReadUnlock(rw), 0);
    });
  waitUntil([&] { return reading == 20; });
  EXPECT_EQ(errnoOf(readLock(rw)), KR_ERR_NO_MEMORY);
  go = true;
  for (auto& reader : readers)
    reader.join();
  EXPECT_EQ(readAndUnlock(rw), 0);
  krReadWriteDestroy(rw);
}

TEST(ReadWrite, WaitersCanBeCancelledOrSentAway) {
  KrReadWrite* const rw = krReadWriteCreate();
  for (const int type : cancelTypes) {
    ASSERT_EQ(readLock(rw), 0);
    Cancellable writer(type, [=] { (void)writeLock(rw); });
    krThreadSuspend(30);
    EXPECT_TRUE(writer.cancel());
    EXPECT_EQ(elsewhere([&] { return readAndUnlock(rw); }), 0); // no writer waits any more
    EXPECT_EQ(krReadUnlock(rw), 0);
    ASSERT_EQ(writeLock(rw), 0);
    Cancellable reader(type, [=] { (void)readLock(rw); });
    krThreadSuspend(30);
    EXPECT_TRUE(reader.cancel());
    EXPECT_EQ(krWriteUnlock(rw), 0);
    EXPECT_EQ(elsewhere([&] { return writeAndUnlock(rw); }), 0);
  }
  ASSERT_EQ(writeLock(rw), 0);
  std::atomic<int> arrived{0};
  const auto sentAway = [&](int (*seek)(KrReadWrite*)) {
    ++arrived;
    EXPECT_EQ(errnoOf(seek(rw)), KR_ERR_INVALID);
  };
  std::thread a(sentAway, writeLock), b(sentAway, readLock);
  waitUntil([&] { return arrived == 2; });
  krThreadSuspend(100);
  krReadWriteDestroy(rw);
  a.join();
  b.join();
}

TEST(ReadWrite, ExcessiveWaitsAreReportedToFiles) {
  if (access("/var/log", W_OK) != 0) GTEST_SKIP() << "/var/log is not writable";
  KrReadWrite* const rw = krReadWriteCreate();
  std::ostringstream address;
  address << static_cast<const void*>(rw);
  const std::string self = std::to_string(static_cast<int>(krThreadIdSelf()));
  const std::string zeros = R"(reader1\[0\], reader2\[0\], reader3\[0\], reader4\[0\])"
                            "\n";
  const struct {
    const char *prefix, *function, *place;
    int (*hold)(KrReadWrite*);
    int (*letGo)(KrReadWrite*);
    int (*wait)(KrReadWrite*);
    std::string state;
  } table[] = {
      {"write", "krWriteLock", R"(Line\[9\], Func\[w\], )", readLock, krReadUnlock, writeAndUnlock,
       R"(waiting\[1\], writer\[0\], reader0\[)" + self + R"(\], )"},
      {"read", "krReadLock", R"(Line\[8\], Func\[r\], )", writeLock, krWriteUnlock, readAndUnlock,
       R"(waiting\[0\], writer\[)" + self + R"(\], reader0\[0\], )"},
  };
  testing::internal::CaptureStdout();
  for (const auto& row : table) {
    const std::string path = std::string("/var/log/") + row.prefix + "LockExcessiveWait" + address.str() + ".log";
    ASSERT_EQ(row.hold(rw), 0);
    std::thread waiter([&] { EXPECT_EQ(row.wait(rw), 0); });
    waitUntil([&] {
      std::ifstream file(path);
      std::string line;
      return std::getline(file, line) && !file.eof();
    });
    EXPECT_EQ(row.letGo(rw), 0);
    waiter.join();
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    EXPECT_TRUE(matches(text.str(), std::string(R"([^]]*\] )") + row.function + R"(: Excessive wait for lock\[)" +
                                        address.str() + R"(\], File\[b.cpp\], )" + row.place + row.state + zeros))
        << text.str();
    EXPECT_EQ(unlink(path.c_str()), 0);
  }
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  krReadWriteDestroy(rw);
}

TEST(Semaphore, CountsAndFails) {
  KrSem* const sem = krSemBinaryCreate(2); // not capped at 1
  ASSERT_NE(sem, nullptr);
  EXPECT_EQ(krSemTake(sem, KR_NO_WAIT), 0);
  EXPECT_EQ(krSemTake(sem, 10), 0);
  EXPECT_EQ(krSemGetValue(sem), 0);
  EXPECT_EQ(errnoOf(krSemTake(sem, KR_NO_WAIT)), EAGAIN);
  EXPECT_EQ(errnoOf(krSemTake(sem, 50)), KR_ERR_TIMEOUT);
  EXPECT_EQ(errnoOf(krSemTake(sem, -9)), KR_ERR_TIMEOUT);
  EXPECT_EQ(krSemGive(sem), 0);
  EXPECT_EQ(krSemTake(sem, KR_NO_WAIT), 0);
  krSemDestroy(sem);
  KrSem* const full = krSemCreate(INT_MAX);
  EXPECT_EQ(errnoOf(krSemGive(full)), EOVERFLOW);
  EXPECT_EQ(krSemGetValue(full), INT_MAX);
  krSemDestroy(full);
  EXPECT_EQ(krSemCreate(UINT_MAX), nullptr);
  EXPECT_EQ(errno, EINVAL);
  for (const int timeout : {KR_WAIT_FOREVER, KR_NO_WAIT, 10})
    EXPECT_EQ(errnoOf(krSemTake(nullptr, timeout)), KR_ERR_INVALID);
  EXPECT_EQ(errnoOf(krSemGive(nullptr)), KR_ERR_INVALID);
  EXPECT_EQ(errnoOf(krSemGetValue(nullptr)), KR_ERR_INVALID);
  krSemFlush(nullptr);
  krSemDestroy(nullptr);
}

TEST(Semaphore, EveryGivenOneIsTaken) {
  constexpr int rounds = 5'000;
  KrSem* const forth = krSemCreate(0);
  KrSem* const back = krSemCreate(0);
  std::vector<std::thread> takers;
  for (const int timeout : {KR_WAIT_FOREVER, 60'000})
    takers.emplace_back([=] {
      for (int i = 0; i < rounds; ++i)
        EXPECT_EQ(krSemTake(forth, timeout) + krSemGive(back), 0);
    });
  for (int i = 0; i < rounds; ++i) {
    EXPECT_EQ(krSemGive(forth) + krSemGive(forth), 0);
    if (i % 100 == 0) krSemFlush(forth); // changes nothing
    EXPECT_EQ(krSemTake(back, KR_WAIT_FOREVER) + krSemTake(back, KR_WAIT_FOREVER), 0);
  }
  for (auto& taker : takers)
    taker.join();
  EXPECT_EQ(krSemGetValue(forth) + krSemGetValue(back), 0);
  krSemDestroy(forth);
  krSemDestroy(back);
}

TEST(Semaphore, WaitersCanBeCancelledOrSentAway) {
  KrSem* const sem = krSemCreate(0);
  for (const int type : cancelTypes) {
    Cancellable waiter(type, [=] { (void)krSemTake(sem, KR_WAIT_FOREVER); });
    krThreadSuspend(30);
    EXPECT_TRUE(waiter.cancel());
  }
  EXPECT_EQ(krSemGive(sem) + krSemTake(sem, KR_NO_WAIT), 0);
  std::vector<std::thread> waiters;
  std::atomic<int> arrived{0};
  for (const int timeout : {KR_WAIT_FOREVER, 60'000})
    waiters.emplace_back([&, timeout] {
      ++arrived;
      EXPECT_EQ(errnoOf(krSemTake(sem, timeout)), KR_ERR_INVALID);
    });
  waitUntil([&] { return arrived == 2; });
  krThreadSuspend(100);
  krSemDestroy(sem);
  for (auto& waiter : waiters)
    waiter.join();
}

TEST(Condition, WaitGivesTheMutexUp) {
  KrMutex* const mutex = krMutexCreate();
  KrCond* const cond = krCondCreate();
  EXPECT_EQ(errno, 0);
  ASSERT_NE(cond, nullptr);
  EXPECT_EQ(errnoOf(krCondWait(cond, mutex)), EPERM); // nobody's
  bool ready = false;
  std::thread setter;
  ASSERT_EQ(lock(mutex, KR_WAIT_FOREVER), 0);
  setter = std::thread([&] {
    EXPECT_EQ(lock(mutex, KR_WAIT_FOREVER), 0);
    ready = true;
    EXPECT_EQ(krMutexUnlock(mutex), 0);
    EXPECT_EQ(krCondSignal(cond), 0);
  });
  for (int round = 0; !ready || round < 25; ++round)
    ASSERT_EQ(krCondWait(cond, mutex), 0); // beyond the 20 slots too
  setter.join();
  EXPECT_EQ(elsewhere([&] { return errnoOf(krCondWait(cond, mutex)); }), EPERM);
  EXPECT_EQ(krCondTimedWait(cond, mutex, 10), -1);
  EXPECT_EQ(errnoOf(krCondWait(nullptr, mutex)), KR_ERR_INVALID);
  EXPECT_EQ(errnoOf(krCondWait(cond, nullptr)), KR_ERR_INVALID);
  EXPECT_EQ(errnoOf(krCondSignal(nullptr)), KR_ERR_INVALID);
  krCondDestroy(cond);
  EXPECT_EQ(errno, 0);
  krCondDestroy(nullptr);
  EXPECT_EQ(errno, KR_ERR_INVALID);
  EXPECT_EQ(elsewhere([&] { return errnoOf(lock(mutex, KR_NO_WAIT)); }), EBUSY); // still this thread's
  EXPECT_EQ(krMutexUnlock(mutex), 0);
  krMutexDestroy(mutex);
}
