// Threads that are cancelled at any moment, and in calls that block.
#include "platform/CKrProperty.h"
#include "platform/CKrThread.h"
#include "platform/internal/Uncancelled.h"
#include "platform/krMem.h"
#include "tests/Threads.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <new>
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

class Idle : public CKrThread {
public:
  void run() override {}
};

// What the calls below work on. Of the locks, one is free, and one is held all the time; of the pipes, one is empty,
// and one is full.
KrMutex *mutex, *heldMutex;
KrReadWrite *readWrite, *heldReadWrite;
KrSem* sem;
KrCond* cond;
KrLogger* logger;
Idle* idle;
CKrProperty* properties;
KrThreadId asker, ended;
KrDir dir, noDir;
KrDirEntry entry;
KrFileInfo info;
KrLogPrinter printer{KR_LOG_PLAIN, KR_LOG_DEBUG, 0, [](const char*) {}, nullptr, "p", nullptr};
int null, full, empty, number;
char text[300], fullPath[99];
alignas(Idle) char place[sizeof(Idle)];

int nothing(intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t) {
  return 0;
}
void print(intptr_t, const char*) {}

std::atomic<bool> begun;

/// What a thread does, again and again in one of the tests. Where it locks, it is not cancelled before it has unlocked.
struct Call {
  const char* name;
  void (*make)();
};

// clang-format off
#define CALL(...) {#__VA_ARGS__, [] { (void)(__VA_ARGS__); }}
#define PAIR(first, second) {#first, [] { kr::uncancelled([] { (void)(first), (void)(second); }); }}
// clang-format on

// Each of these blocks for ever; from krPrintf on it is the console that takes nothing.
const Call blocked[] = {
    CALL(krReadFromSysFile("fifo", text, 9)),
    CALL(krWriteToSysFile("fifo", "x")),
    CALL(krWriteToSysFile(fullPath, "x")),
    CALL(krFileCopy("fifo", "x")),
    CALL(krFileCopy("from/file", fullPath)),
    CALL(krDirCopy("from", "to")),
    CALL(krDirList(full, "from")),
    CALL(krDirDelete("from")),
    CALL(krFdPrintf(full, "x")),
    CALL(fioRdString(empty, text, 9)),
    CALL(krPrintf("%05000d", 1)),
    CALL(krInfo(logger, "x")),
    CALL(krLogList()),
    CALL(krFree(krMalloc(0))),
    CALL(krFree(text)),
    CALL(krThreadSpawn("x", KR_KEEP_PRIORITY, 0, nothing, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0)),
};

const Call everyCall[] = {
    PAIR(lock(mutex, KR_WAIT_FOREVER), krMutexUnlock(mutex)),
    CALL(lock(heldMutex, 1), krMutexUnlock(mutex)),
    CALL(krMutexDestroy(krMutexCreate())),
    PAIR(readLock(readWrite), krReadUnlock(readWrite)),
    PAIR(writeLock(readWrite), krWriteUnlock(readWrite)),
    CALL(readLock(heldReadWrite)),
    CALL(writeLock(heldReadWrite)),
    CALL(krReadWriteDestroy(krReadWriteCreate())),
    CALL(krSemTake(sem, 1), krSemGive(sem), krSemFlush(sem), krSemGetValue(sem)),
    CALL(krSemDestroy(krSemBinaryCreate(1))),
    CALL(krCondWait(cond, mutex), krCondTimedWait(cond, mutex, 1), krCondSignal(cond)),
    CALL(krCondDestroy(krCondCreate())),
    CALL(krMemInit(1, 0), krMemEnableWatch()),
    CALL(krFree(krRealloc(krMalloc(0), 1000))),
    CALL(krFree(krRealloc(krZalloc(50'000), 100'000))),
    CALL(krFree(text), krFreeByHeap(g_heap, krRealloc(text, 48))),
    CALL(krMemSetDebug(krMemGetDebug() ^ krMemGetType(7)), krMemTrackNewUsage(g_heap, krThreadIdSelf(), 0)),
    CALL(krLogGetLogger("a.b.c"), getLogger("a.b.c"), getParent("a.b.c.d.e"), isChild(nullptr, logger)),
    CALL(krFatal(logger, "x"), krError(logger, "x"), krWarn(logger, "x"), krInfo(logger, "x"), krDebug(logger, "x")),
    CALL(krLogSetLevel(logger, krLogGetLevel(logger)), krLogSetLevelByName("a.b.c.d.e.f.g", KR_LOG_INFO)),
    CALL(krLogSetFormatter(logger, "f"), krLogGetFormatter(logger)),
    CALL(krLogAddPrinter(logger, "p", printer.print), krLogRemovePrinter(logger, "p")),
    CALL(krLogAddContextPrinter(logger, "c", 1, print), krLogRemoveContextPrinter(logger, "c", 1)),
    CALL(krLogSetPrinterLevel(logger, "p", krLogGetPrinterLevel(logger, "p"))),
    CALL(krLogSetContextPrinterLevel(logger, "c", 1, krLogGetContextPrinterLevel(logger, "c", 1))),
    CALL(krLogInsertPrinter(logger, &printer), krLogDeletePrinter(logger, &printer)),
    CALL(krLogGetLoggerName(krLogGetLoggerCount() - 1), krLogList()),
    CALL(krThreadSpawn("x", KR_KEEP_PRIORITY, 0, nothing, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0)),
    CALL(krThreadJoin(krThreadSpawn_joinable("x", -1, 1 << 17, nothing, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0), nullptr)),
    CALL(krThreadSetPriority(ended, 5), krThreadGetPriority(ended, &number), krThreadGetPriority(asker, &number)),
    CALL(krThreadDelete(ended), krThreadAwaitEnd(asker), krThreadDelete(krThreadIdSelf())),
    CALL(idle->start("x", KR_KEEP_PRIORITY, 0), idle->kill()),
    CALL(idle->getName(), idle->getPriority(&number), idle->setPriority(KR_KEEP_PRIORITY), idle->pause()),
    CALL((new (place) Idle)->~Idle()),
    CALL(krReadFromSysFile("file", text, 9), krWriteToSysFile("missing", "x")),
    CALL(krFileStat("file", &info), krFileStatAttrib("file"), krFileCopy("file", "copy")),
    CALL(krDirOpen("missing", &noDir), krDirRead(&dir, &entry), krDirClose(&noDir)),
    CALL(krDirClean("empty"), krDirCopy(".", "copies"), krDirList(null, ".")),
    CALL(krDirDelete("missing")),
    CALL(krDiskSize(), krDiskFree(), krDiskClean(), krGetHostByName("127.0.0.1")),
    CALL(krPrintf("%02000d", 1), krFdPrintf(null, "%d", 1)),
    CALL(CKrProperty::getInstance("settings"), properties->load(), properties->store("settings")),
    CALL(properties->setProperty("name", text), properties->setProperty("number", number)),
    CALL(properties->getProperty("name", text, "x", 9), properties->getLength("name", "x")),
};

void compute() {
  while (begun) {
  }
}
void computeWithoutSignals() {
  sigset_t all;
  (void)sigfillset(&all);
  (void)pthread_sigmask(SIG_SETMASK, &all, nullptr);
  compute();
}

/// Fails, or waits for ever, if a cancelled thread has kept a lock.
void expectEveryLockFree() {
  krFree(krMalloc(100));
  krInfo(logger, "x");
  properties->setProperty("name", "y");
  EXPECT_EQ(ftrylockfile(stdout), 0);
  funlockfile(stdout);
  EXPECT_EQ(lock(mutex, 1000), 0);
  EXPECT_EQ(krMutexUnlock(mutex), 0);
  EXPECT_EQ(writeLock(readWrite), 0);
  EXPECT_EQ(krWriteUnlock(readWrite), 0);
  EXPECT_EQ(krSemGive(sem), 0);
  EXPECT_EQ(krSemTake(sem, KR_NO_WAIT), 0);
  EXPECT_EQ(lock(g_listMutex, 1000), 0);
  EXPECT_EQ(krMutexUnlock(g_listMutex), 0);
  EXPECT_EQ(krThreadGetPriority(asker, &number), 0);
  EXPECT_EQ(krCondSignal(cond), 0);
}

} // namespace

TEST(Cancel, ThreadsOnTheirWayOutMayBeCancelledOnceMore) {
  if (!cancelsAnywhere) GTEST_SKIP() << notAnywhere;
  const Call table[] = {{"computes", compute},
                        {"takes no signals", computeWithoutSignals},
                        {"sleeps", [] { (void)krThreadSuspend(60'000); }},
                        {"returns", [] {}},
                        {"exits", [] { pthread_exit(nullptr); }}};
  quietly([&] {
    for (const auto& row : table)
      for (int round = rounds(50); round > 0; --round) {
        begun = false;
        auto work = [&] {
          begun = true;
          row.make();
        };
        const KrThreadId tid = spawn(work);
        waitUntil([] { return begun.load(); });
        for (int i = 0; i < 2; ++i) {
          pass();
          (void)krThreadDelete(tid); // it may have ended
        }
        ASSERT_EQ(krThreadAwaitEnd(tid), 0) << row.name;
      }
  });
}

using CancelInFiles = Scratch;

// Of two threads the first is cancelled last: the second may wait for what the first holds.
TEST_F(CancelInFiles, BlockedCallsCanBeCancelledAndLeaveNothingBehind) {
  int filled[2], fresh[2];
  ASSERT_EQ(pipe2(filled, O_NONBLOCK), 0);
  ASSERT_EQ(pipe(fresh), 0);
  while (write(filled[1], "x", 1) == 1) {
  }
  ASSERT_EQ(fcntl(filled[1], F_SETFL, 0), 0);
  full = filled[1], empty = fresh[0];
  (void)snprintf(fullPath, sizeof fullPath, "/proc/self/fd/%d", full);
  ASSERT_EQ(krDirMake("from"), 0);
  ASSERT_EQ(krDirMake("to"), 0);
  ASSERT_EQ(mkfifo("fifo", 0600), 0);
  ASSERT_EQ(mkfifo("to/file", 0600), 0);
  write("from/file", "x");
  write("rm", "#!/bin/sh\nwhile [ -e fifo ]; do sleep 0.1; done\n");
  ASSERT_EQ(chmod("rm", 0700), 0);
  ASSERT_EQ(setenv("PATH", ".:/bin:/usr/bin", 1), 0);
  krMemInit(1, 0);
  logger = krLogGetLogger("x");
  ASSERT_EQ(setvbuf(stdout, nullptr, _IONBF, 0), 0);
  quietly([&] {
    const int console = dup(STDOUT_FILENO);
    for (const Call& row : blocked) {
      const auto before = openFiles();
      const uint32_t blocks = g_heap->inUse[0];
      std::atomic<int> allowed{0};
      const auto inTurn = [&](int turn) {
        return [&, turn] {
          waitUntil([&] { return allowed >= turn; });
          row.make();
        };
      };
      auto first = inTurn(1), second = inTurn(2);
      const KrThreadId tids[] = {spawn(first), spawn(second)};
      (void)dup2(full, STDOUT_FILENO); // what fails now could not be reported
      for (int i = 0; i < 2; ++i) {
        ++allowed;
        krThreadSuspend(100); // by then it is blocked
      }
      for (const KrThreadId tid : {tids[1], tids[0]}) {
        (void)krThreadDelete(tid);
        (void)krThreadAwaitEnd(tid); // a thread that cannot be cancelled blocks this
      }
      EXPECT_NE(dup2(console, STDOUT_FILENO), -1);
      EXPECT_EQ(openFiles(), before) << row.name;
      EXPECT_EQ(g_heap->inUse[0], blocks) << row.name;
    }
    (void)close(console);
  });
}

TEST_F(CancelInFiles, EveryCallLeavesItsLocksFree) {
  if (!cancelsAnywhere) GTEST_SKIP() << notAnywhere;
  krMemInit(1, 0);
  mutex = krMutexCreate(), heldMutex = krMutexCreate();
  readWrite = krReadWriteCreate(), heldReadWrite = krReadWriteCreate();
  ASSERT_EQ(lock(heldMutex, KR_NO_WAIT), 0);
  ASSERT_EQ(writeLock(heldReadWrite), 0);
  sem = krSemCreate(0);
  cond = krCondCreate();
  logger = krLogGetLogger("a.b");
  properties = CKrProperty::getInstance("settings");
  Idle thread;
  idle = &thread;
  asker = krThreadIdSelf();
  null = open("/dev/null", O_RDWR);
  write("file", "x");
  ASSERT_EQ(krDirOpen("/", &dir), 0);
  ASSERT_EQ(krDirMake("empty"), 0);
  ASSERT_EQ(krDirMake("copies"), 0);
  auto leave = [] {};
  quietly([&] {
    ended = spawn(leave);
    ASSERT_EQ(krThreadAwaitEnd(ended), 0);
    for (const Call& call : everyCall)
      for (int round = rounds(5); round > 0; --round) {
        begun = false;
        auto work = [&] {
          for (begun = true;;)
            call.make();
        };
        const KrThreadId tid = spawn(work);
        if (round % 5 != 0)
          waitUntil([] { return begun.load(); }); // else it is cancelled before it begins, or about then
        pass();
        (void)krThreadDelete(tid); // one of the calls ends it
        SCOPED_TRACE(call.name);
        ASSERT_EQ(krThreadAwaitEnd(tid), 0);
        expectEveryLockFree();
      }
  });
}
