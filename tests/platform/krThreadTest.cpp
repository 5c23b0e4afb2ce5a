#include "tests/platform/Elsewhere.h"

#include "platform/Diagnostic.h"
#include "platform/Uncancelled.h"
#include "platform/krMem.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace {

using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

std::atomic<bool> ran;
std::atomic<size_t> stackOfThread;

int checkArguments(intptr_t a1, intptr_t a2, intptr_t a3, intptr_t a4, intptr_t a5, intptr_t a6, intptr_t a7,
                   intptr_t a8, intptr_t a9, intptr_t a10) {
  size_t size = 0;
  pthread_attr_t attributes;
  kr::uncancelled([&] {
    pthread_getattr_np(pthread_self(), &attributes);
    pthread_attr_getstacksize(&attributes, &size);
    pthread_attr_destroy(&attributes);
  });
  stackOfThread = size;
  ran = a1 == INTPTR_MIN && a2 == 2 && a3 == 3 && a4 == 4 && a5 == 5 && a6 == 6 && a7 == 7 && a8 == 8 && a9 == 9 &&
        a10 == INTPTR_MAX;
  return 5;
}

int spin(intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t) {
  for (ran = true;;) {
  }
}

/// Makes calls that lock, allocate and print, over and over.
int callTheLibrary(intptr_t sem, intptr_t mutex, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t,
                   intptr_t) {
  for (ran = true;;) {
    krFree(krRealloc(krMalloc(100), 1000));
    (void)krSemTake(reinterpret_cast<KrSem*>(sem), KR_NO_WAIT);
    (void)krSemGive(reinterpret_cast<KrSem*>(sem));
    kr::say(stdout, ".");
    kr::uncancelled([=] { // a thread that is cancelled while it holds a lock keeps it
      (void)lock(reinterpret_cast<KrMutex*>(mutex), KR_WAIT_FOREVER);
      (void)krMutexUnlock(reinterpret_cast<KrMutex*>(mutex));
    });
  }
}

KrThreadId spawn(KrThreadEntry entry, intptr_t a1 = 0, intptr_t a2 = 0) {
  return krThreadSpawn("x", KR_KEEP_PRIORITY, 0, entry, a1, a2, 0, 0, 0, 0, 0, 0, 0, 0);
}

std::string signedText(KrThreadId tid) { return std::to_string(static_cast<int>(tid)); }
std::string unsignedText(KrThreadId tid) { return std::to_string(static_cast<uint32_t>(tid)); }

/// Whether this process may use the FIFO policy: root outside of a container that takes it away.
bool mayUseFifo() {
  return elsewhere([] {
           sched_param parameters{};
           parameters.sched_priority = 1;
           return pthread_setschedparam(pthread_self(), SCHED_FIFO, &parameters);
         }) == 0;
}

/// What setting `priority` for a thread says, and the Linux priority the thread has then.
std::pair<std::string, int> expectedPriority(KrThreadId tid, int priority, int linux) {
  const std::string head = "krThreadSetPriority: ", id = "tid[" + signedText(tid) + "]";
  if (geteuid() != 0) return {head + "ERROR: " + id + "; NOT ROOT: geteuid()=" + std::to_string(geteuid()) + "\n", 0};
  if (!mayUseFifo())
    return {head + "ERROR: pthread_setschedparam (pri=" + std::to_string(linux) + ", policy=1) failed for " + id + "\n",
            0};
  return {head + "Set priority for " + id + " to [" + std::to_string(linux) +
              "] (kr priority=" + std::to_string(priority) + "), policy=1\n",
          linux};
}

KrThreadId spawnDetached(const char* name) {
  return krThreadSpawn(name, 50, 64'000, checkArguments, INTPTR_MIN, 2, 3, 4, 5, 6, 7, 8, 9, INTPTR_MAX);
}
KrThreadId spawnJoinable(const char* name) {
  return krThreadSpawn_joinable(name, 50, 1 << 20, checkArguments, INTPTR_MIN, 2, 3, 4, 5, 6, 7, 8, 9, INTPTR_MAX);
}
KrThreadId spawnWithAttributes(const char* name) {
  return krThreadSpawn_with_attr(name, 50, nullptr, checkArguments, INTPTR_MIN, 2, 3, 4, 5, 6, 7, 8, 9, INTPTR_MAX);
}

} // namespace

TEST(Thread, SpawnsAreToldAndLogged) {
  const std::string name(300, 'n'), self = unsignedText(krThreadIdSelf());
  const struct {
    KrThreadId (*spawn)(const char*);
    const char* shownStack;
    std::string (*id)(KrThreadId);
    bool join;
  } table[] = {{spawnDetached, "64000", signedText, false},
               {spawnJoinable, "1048576", unsignedText, true},
               {spawnWithAttributes, nullptr, unsignedText, true}};
  for (const auto& row : table) {
    ran = false;
    CaptureStdout();
    CaptureStderr();
    const KrThreadId tid = row.spawn(name.c_str());
    ASSERT_NE(tid, KR_NO_THREAD);
    void* result = &ran;
    EXPECT_EQ(row.join ? krThreadJoin(tid, &result) : krThreadAwaitEnd(tid), 0);
    EXPECT_EQ(result, row.join ? nullptr : &ran);
    EXPECT_TRUE(ran);
    EXPECT_EQ(stackOfThread >> 20, row.spawn == spawnJoinable ? 1u : stackOfThread >> 20);
    EXPECT_GT(stackOfThread, 64'000u);
    EXPECT_EQ(GetCapturedStdout(), row.shownStack == nullptr ? ""
                                                             : "krThreadSpawn " + name + " ss:" + row.shownStack +
                                                                   " p:50 tid:" + std::to_string(tid) + "\n");
    const auto [said, linux] = expectedPriority(tid, 50, 80);
    const std::string told = "Thread [" + name + "] (tid = " + row.id(tid) +
                             "); Linux Priority = " + std::to_string(linux) +
                             "; spawned by tid = " + row.id(krThreadIdSelf()) + "\n";
    const std::string spawned = R"([0-9/]{5} [0-9:]{8}\.[0-9]{2} \[)" + self +
                                R"(\] krThreadSpawn: Spawned Thread \[)" + name + R"(\] \(tid = )" + row.id(tid) +
                                R"(\); Linux Priority = )" + std::to_string(linux) + "\n";
    const std::string started =
        "New thread, tid = " + signedText(tid) + " / PID = " + std::to_string(getpid()) + " / LWP id = [0-9]+\n";
    std::string text = GetCapturedStderr();
    const size_t at = text.find("New thread"); // told by the thread itself, whenever it runs
    ASSERT_NE(at, std::string::npos);
    const size_t length = text.find("\n\n", at) + 2 - at;
    EXPECT_TRUE(matches(text.substr(at, length), started + "\n")) << text;
    text.erase(at, length);
    EXPECT_EQ(text.substr(0, said.size() + told.size()), said + told);
    EXPECT_TRUE(matches(text.substr(said.size() + told.size()), spawned + "\n")) << text;
    std::ifstream log("/var/log/threads.log"); // where others may write as well
    if (!log) continue;
    std::ostringstream lines;
    lines << log.rdbuf();
    for (const auto& line : {spawned, started})
      EXPECT_TRUE(testing::internal::RE::PartialMatch(lines.str(), testing::internal::RE(line))) << line;
  }
}

TEST(Thread, DefaultStackSizeComesFromTheEnvironment) {
  for (const auto& [value, shown] : {std::pair{"", "0"},
                                     {"nonsense", "0"},
                                     {"131072", "131072"},
                                     {"5k", "5"},
                                     {"99999999999999999999", "2147483647"},
                                     {static_cast<const char*>(nullptr), "65536"}}) {
    value != nullptr ? setenv("KR_DEFAULT_STACKSIZE", value, 1) : unsetenv("KR_DEFAULT_STACKSIZE");
    CaptureStdout();
    EXPECT_EQ(krThreadAwaitEnd(spawn(checkArguments)), 0);
    const std::string line = GetCapturedStdout();
    EXPECT_EQ(line.find(std::string("krThreadSpawn x ss:") + shown + " p:-1 tid:"), 0u) << line;
  }
}

TEST(Thread, FailureToSpawn) {
  CaptureStdout();
  CaptureStderr();
  const KrThreadId tid = krThreadSpawn_joinable("x", 50, -1, checkArguments, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);
  const int error = errno;
  EXPECT_EQ(tid, KR_NO_THREAD);
  char expected[128];
  (void)snprintf(expected, sizeof expected, "krThreadSpawn Failed to spawn [x], errno = [0x%08x : %s]\n",
                 static_cast<unsigned>(error), strerror(error));
  EXPECT_EQ(GetCapturedStderr(), expected);
  EXPECT_EQ(GetCapturedStdout(), "krThreadSpawn x ss:-1 p:50 tid:" + std::to_string(KR_NO_THREAD) + "\n");
}

TEST(Thread, Priorities) {
  const KrThreadId tid = spawn(spin);
  for (const int wrong : {-2, 256, INT_MAX}) {
    EXPECT_EQ(errnoOf(krThreadSetPriority(tid, wrong)), KR_ERR_PRIORITY);
  }
  CaptureStderr();
  EXPECT_EQ(krThreadSetPriority(tid, KR_KEEP_PRIORITY), 0);
  EXPECT_EQ(GetCapturedStderr(), "");
  EXPECT_EQ(krThreadDelete(tid), 0);
  EXPECT_EQ(krThreadAwaitEnd(tid), 0);
  const struct {
    int priority, linux, readBack;
  } table[] = {{0, 99, 0}, {1, 99, 0}, {50, 80, 49}, {128, 50, 126}, {254, 1, 253}, {255, 1, 253}};
  for (const auto& row : table) {
    int readBack = -7;
    std::string text, expected;
    std::thread([&] { // on a thread of its own, as some of these starve others
      const auto [said, linux] = expectedPriority(krThreadIdSelf(), row.priority, row.linux);
      CaptureStderr();
      EXPECT_EQ(krThreadSetPriority(krThreadIdSelf(), row.priority), linux != 0 ? 0 : -1);
      EXPECT_EQ(krThreadGetPriority(krThreadIdSelf(), &readBack), 0);
      text = GetCapturedStderr();
      expected = said;
      EXPECT_EQ(readBack, linux != 0 ? row.readBack : 256);
    })
        .join();
    EXPECT_EQ(text, expected);
  }
}

TEST(Thread, NoThreadIsRefused) {
  int out = 7;
  void* result = nullptr;
  for (const KrThreadId none : {KR_NO_THREAD, KrThreadId{0}}) {
    EXPECT_EQ(krThreadDelete(none), ESRCH);
    EXPECT_EQ(krThreadJoin(none, &result), ESRCH);
    EXPECT_EQ(errnoOf(krThreadSetPriority(none, 5)), ESRCH);
    EXPECT_EQ(errnoOf(krThreadGetPriority(none, &out)), ESRCH);
    EXPECT_EQ(krThreadAwaitEnd(none), 0);
    EXPECT_EQ(krThreadResume(none), -1);
    EXPECT_EQ(krThreadStackAvailable(none), 0x7FFFFFFF);
  }
  EXPECT_EQ(out, 7);
  EXPECT_EQ(errnoOf(krThreadAwaitEnd(krThreadIdSelf())), EDEADLK);
}

TEST(Thread, IsCancelledAnywhere) {
  ran = false;
  const KrThreadId tid = spawn(spin);
  while (!ran)
    krThreadSuspend(1);
  EXPECT_EQ(krThreadDelete(tid), 0);
  EXPECT_EQ(krThreadAwaitEnd(tid), 0);
  EXPECT_EQ(krThreadAwaitEnd(tid), 0);
}

TEST(Thread, CancellingLeavesTheLibraryUsable) {
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the clean-up code of the thread sanitizer does not stand asynchronous cancellation";
#endif
  krMemInit(1, 0);
  static void* known[2][400]; // so many blocks that none of those the threads take away is unknown to a leak check
  for (auto* const blocks : known) {
    for (int i = 0; i < 400; ++i)
      blocks[i] = krMalloc(blocks == known[0] ? 100 : 1000);
    for (int i = 0; i < 400; ++i)
      krFree(blocks[i]);
  }
  KrSem* const sem = krSemCreate(100'000);
  KrMutex* const mutex = krMutexCreate();
  CaptureStdout();
  CaptureStderr();
  for (int round = 0; round < 300; ++round) {
    ran = false;
    const KrThreadId tid = spawn(callTheLibrary, reinterpret_cast<intptr_t>(sem), reinterpret_cast<intptr_t>(mutex));
    ASSERT_NE(tid, KR_NO_THREAD);
    if (round % 2 == 0) waitUntil([] { return ran.load(); }); // else it is cancelled before it begins, or about then
    ASSERT_EQ(krThreadDelete(tid), 0);
    ASSERT_EQ(krThreadAwaitEnd(tid), 0);
    ASSERT_EQ(lock(mutex, KR_NO_WAIT) + krMutexUnlock(mutex), 0);
    krFree(krMalloc(100));
  }
  const std::string out = GetCapturedStdout();
  GetCapturedStderr();
  EXPECT_NE(out.find('.'), std::string::npos);
  EXPECT_EQ(out.find("krFree"), std::string::npos);
  krSemDestroy(sem);
  krMutexDestroy(mutex);
}
