// Threads that are cancelled at any moment.
#include "platform/CKrProperty.h"
#include "platform/CKrThread.h"
#include "platform/internal/Uncancelled.h"
#include "platform/krMem.h"
#include "tests/Elsewhere.h"
#include "tests/Scratch.h"

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
  write("rm", "#!/bin/sh\nwhile [ -e fifo ]; do sleep 0.1; done\n");
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

namespace {

class Idle : public CKrThread {
public:
  void run() override {}
};

// What the calls below work on. Of the locks, one is free, and one is held all the time.
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
KrFsStat figures;
KrTime now;
time_t seconds;
KrLogPrinter printer{KR_LOG_PLAIN, KR_LOG_DEBUG, 0, [](const char*) {}, nullptr, "p", nullptr};
int null, number;
char text[300];
alignas(Idle) char place[sizeof(Idle)];

int nothing(intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t) {
  return 0;
}
void print(intptr_t, const char*) {}

/// What a thread does again and again. Where it locks, it is not cancelled before it has unlocked.
struct Call {
  const char* name;
  void (*make)();
};

#define CALL(expression)                                                                                               \
  {                                                                                                                    \
#expression, [] { (void)(expression); }                                                                            \
  }
#define PAIR(first, second)                                                                                            \
  {                                                                                                                    \
#first, [] { kr::uncancelled([] { (void)sum({first, second}); }); }                                                \
  }

const Call everyCall[] = {
    PAIR(lock(mutex, KR_WAIT_FOREVER), krMutexUnlock(mutex)),
    CALL(lock(heldMutex, 1)),
    CALL(krMutexUnlock(mutex)),
    CALL(krMutexDestroy(krMutexCreate())),
    PAIR(readLock(readWrite), krReadUnlock(readWrite)),
    PAIR(writeLock(readWrite), krWriteUnlock(readWrite)),
    CALL(readLock(heldReadWrite)),
    CALL(writeLock(heldReadWrite)),
    CALL(krReadUnlock(readWrite)),
    CALL(krWriteUnlock(readWrite)),
    CALL(krReadWriteDestroy(krReadWriteCreate())),
    CALL(krSemTake(sem, 1)),
    CALL(krSemGive(sem)),
    CALL(krSemFlush(sem)),
    CALL(krSemGetValue(sem)),
    CALL(krSemDestroy(krSemBinaryCreate(1))),
    CALL(krCondWait(cond, mutex)),
    CALL(krCondTimedWait(cond, mutex, 1)),
    CALL(krCondSignal(cond)),
    CALL(krCondDestroy(krCondCreate())),
    CALL(krMemInit(1, 0)),
    CALL(krFree(krRealloc(krMalloc(0), 1000))),
    CALL(krFree(krRealloc(krZalloc(50'000), 100'000))),
    CALL(krFree(text)),
    CALL(krFreeByHeap(g_heap, krRealloc(text, 48))),
    CALL(krMemSetDebug(krMemGetType(7))),
    CALL(static_cast<int>(krMemGetMaxSize()) + krMemGetDebug()),
    CALL(krMemEnableWatch()),
    CALL(krMemTrackNewUsage(g_heap, krThreadIdSelf(), 0)),
    CALL(krLogGetLogger("a.b.c")),
    CALL(getLogger("a.b.c")),
    CALL(getParent("a.b.c.d.e")),
    CALL(isChild(nullptr, logger)),
    CALL(krFatal(logger, "%s", "x")),
    CALL(krError(logger, "%s", "x")),
    CALL(krWarn(logger, "%s", "x")),
    CALL(krInfo(logger, "%s", "x")),
    CALL(krDebug(logger, "%s", "x")),
    CALL(krLogSetLevel(logger, krLogGetLevel(logger))),
    CALL(krLogSetLevelByName("a.b.c.d.e.f.g", KR_LOG_INFO)),
    CALL(krLogSetFormatter(logger, "f")),
    CALL(krLogGetFormatter(logger)),
    CALL((krLogAddPrinter(logger, "p", printer.print), krLogRemovePrinter(logger, "p"))),
    CALL((krLogAddContextPrinter(logger, "c", 1, print), krLogRemoveContextPrinter(logger, "c", 1))),
    CALL(krLogSetPrinterLevel(logger, "p", krLogGetPrinterLevel(logger, "p"))),
    CALL(krLogSetContextPrinterLevel(logger, "c", 1, krLogGetContextPrinterLevel(logger, "c", 1))),
    CALL((krLogInsertPrinter(logger, &printer), krLogDeletePrinter(logger, &printer))),
    CALL(krLogGetLoggerCount()),
    CALL(krLogGetLoggerName(1)),
    CALL(krLogList()),
    CALL(krThreadSpawn("x", KR_KEEP_PRIORITY, 0, nothing, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0)),
    CALL(krThreadJoin(krThreadSpawn_joinable("x", -1, 1 << 17, nothing, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0), nullptr)),
    CALL(krThreadSetPriority(ended, 5)),
    CALL(krThreadGetPriority(asker, &number)),
    CALL(krThreadGetPriority(ended, &number)),
    CALL(krThreadDelete(ended)),
    CALL(krThreadDelete(krThreadIdSelf())),
    CALL(krThreadAwaitEnd(ended)),
    CALL(krThreadAwaitEnd(asker)),
    CALL(krThreadResume(asker) + krThreadStackAvailable(asker)),
    CALL(krThreadPause(asker)),
    CALL(krThreadSuspend(0)),
    CALL(krThreadName(asker)),
    CALL(krDiffTime(now, now) + static_cast<uint32_t>(krGetTime(&now))),
    CALL((idle->start("x", KR_KEEP_PRIORITY, 0), idle->kill())),
    CALL(idle->pause() + idle->resume()),
    CALL(idle->getName()),
    CALL(idle->getPriority(&number) + idle->setPriority(KR_KEEP_PRIORITY)),
    CALL((new (place) Idle)->~Idle()),
    CALL(krReadFromSysFile("file", text, 9)),
    CALL(krWriteToSysFile("missing", "x")),
    CALL(fioRdString(null, text, 9) + krFioRdString(null, text, 9)),
    CALL(krFileStat("file", &info)),
    CALL(krFileSize("file") + krFileSizeByFd(null)),
    CALL(krFileTimeGet("file", &seconds, nullptr)),
    CALL(krFileCopy("file", "copy")),
    CALL(krFileDelete("missing")),
    CALL(krFileReadLink("link", text, 9) + krFileSymLink("file", "link")),
    CALL(krFileStatAttrib("file") + krFileTimeSet("file")),
    CALL(krFdSetCloexecFlag(null, 1)),
    CALL(krDirOpen("missing", &noDir) + krDirClose(&noDir)),
    CALL(krDirRead(&dir, &entry)),
    CALL(krDirMake("made") + krDirRemove("made")),
    CALL(krDirClean("empty")),
    CALL(krDirDelete("missing")),
    CALL(krDirCopy(".", "copies")),
    CALL(krDirList(null, ".")),
    CALL(krDirGet(text) + krDirChange(".")),
    CALL(krFileSystemStat(".", &figures)),
    CALL(krDiskSize() + krDiskFree()),
    CALL(krDiskClean()),
    CALL(krGetHostName(text, 100)),
    CALL(krInetNtoa(krInetAddr("1.2.3.4"), text)),
    CALL(krGetHostByName("127.0.0.1")),
    CALL(krPrintf("%02000d", 1)),
    CALL(krFdPrintf(null, "%d", 1)),
    CALL(CKrProperty::getInstance("settings")),
    CALL(properties->load()),
    CALL(properties->store("settings")),
    CALL(properties->setProperty("name", text)),
    CALL(properties->setProperty("number", number)),
    CALL(properties->getProperty("name", text, "x", 9)),
    CALL(properties->getProperty("number", 9)),
    CALL(properties->getLength("name", "x")),
};

/// 0 if nobody has kept a lock.
int useEveryLock() {
  krFree(krMalloc(100));
  krInfo(logger, "x");
  properties->setProperty("name", "y");
  const int console = ftrylockfile(stdout);
  if (console == 0) funlockfile(stdout);
  return console + sum({lock(mutex, 1000), krMutexUnlock(mutex), writeLock(readWrite), krWriteUnlock(readWrite),
                        krSemGive(sem), krSemTake(sem, KR_NO_WAIT), lock(g_listMutex, 1000), krMutexUnlock(g_listMutex),
                        krThreadGetPriority(asker, &number), krCondSignal(cond)});
}

} // namespace

TEST_F(CancelInFiles, EveryCallLeavesItsLocksFree) {
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the clean-up code of the thread sanitizer does not stand asynchronous cancellation";
#endif
  krMemInit(1, 0);
  mutex = krMutexCreate(), heldMutex = krMutexCreate();
  readWrite = krReadWriteCreate(), heldReadWrite = krReadWriteCreate();
  ASSERT_EQ(lock(heldMutex, KR_NO_WAIT) + writeLock(heldReadWrite), 0);
  sem = krSemCreate(0);
  cond = krCondCreate();
  logger = krLogGetLogger("a.b");
  properties = CKrProperty::getInstance("settings");
  Idle thread;
  idle = &thread;
  asker = krThreadIdSelf();
  null = open("/dev/null", O_RDWR);
  write("file", "x");
  ASSERT_EQ(krDirOpen("/", &dir) + krDirMake("empty") + krDirMake("copies"), 0);
  auto leave = [] {};
  static std::atomic<const Call*> current;
  auto work = [] {
    void (*const make)() = current.load()->make;
    for (begun = true;;)
      make();
  };
  testing::internal::CaptureStderr();
  (void)printed([&] {
    ended = spawn(leave);
    ASSERT_EQ(krThreadAwaitEnd(ended), 0);
    for (const Call& call : everyCall)
      for (int round = rounds(5); round > 0; --round) {
        current = &call;
        begun = false;
        const KrThreadId tid = spawn(work);
        waitUntil([] { return begun.load(); });
        pass();
        (void)krThreadDelete(tid); // one of the calls ends it
        ASSERT_EQ(krThreadAwaitEnd(tid) + useEveryLock(), 0) << call.name;
      }
  });
  (void)testing::internal::GetCapturedStderr();
}
