#include "tests/Threads.h"

#include "platform/internal/Uncancelled.h"

#include <array>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <unistd.h>
#include <vector>

namespace {

std::atomic<bool> ran;
std::atomic<size_t> stackSize;

int checkArguments(intptr_t a1, intptr_t a2, intptr_t a3, intptr_t a4, intptr_t a5, intptr_t a6, intptr_t a7,
                   intptr_t a8, intptr_t a9, intptr_t a10) {
  kr::uncancelled([=] {
    EXPECT_EQ((std::array{a1, a2, a3, a4, a5, a6, a7, a8, a9, a10}),
              (std::array<intptr_t, 10>{INTPTR_MIN, 2, 3, 4, 5, 6, 7, 8, 9, INTPTR_MAX}));
    size_t size = 0;
    pthread_attr_t attributes;
    (void)pthread_getattr_np(pthread_self(), &attributes);
    (void)pthread_attr_getstacksize(&attributes, &size);
    (void)pthread_attr_destroy(&attributes);
    stackSize = size;
  });
  ran = true;
  return 5;
}

KrThreadId detached(const char* name) {
  return krThreadSpawn(name, 50, 64'000, checkArguments, INTPTR_MIN, 2, 3, 4, 5, 6, 7, 8, 9, INTPTR_MAX);
}
KrThreadId joinable(const char* name) {
  return krThreadSpawn_joinable(name, 50, 1 << 20, checkArguments, INTPTR_MIN, 2, 3, 4, 5, 6, 7, 8, 9, INTPTR_MAX);
}
KrThreadId withAttributes(const char* name) {
  return krThreadSpawn_with_attr(name, 50, nullptr, checkArguments, INTPTR_MIN, 2, 3, 4, 5, 6, 7, 8, 9, INTPTR_MAX);
}

std::string asSigned(KrThreadId tid) { return format("%d", static_cast<int>(tid)); }
std::string asUnsigned(KrThreadId tid) { return format("%u", static_cast<unsigned>(tid)); }

/// What setting `priority` for a thread says here, and the Linux priority it has then. Ordinary users may not set one,
/// and neither may root in many a container.
std::pair<std::string, int> expectedPriority(KrThreadId tid, int priority, int linux) {
  const int id = static_cast<int>(tid), user = static_cast<int>(geteuid());
  if (user != 0) return {format("krThreadSetPriority: ERROR: tid[%d]; NOT ROOT: geteuid()=%d\n", id, user), 0};
  const bool allowed = onAnotherThread([] {
                         sched_param parameters{};
                         parameters.sched_priority = 1;
                         return pthread_setschedparam(pthread_self(), SCHED_FIFO, &parameters);
                       }) == 0;
  const char* const set = "krThreadSetPriority: Set priority for tid[%d] to [%d] (kr priority=%d), policy=1\n";
  const char* const failed =
      "krThreadSetPriority: ERROR: pthread_setschedparam (pri=%d, policy=1) failed for tid[%d]\n";
  return allowed ? std::pair(format(set, id, linux, priority), linux) : std::pair(format(failed, linux, id), 0);
}

} // namespace

TEST(Thread, SpawnsArePrintedAndLogged) {
  const std::string name(300, 'n');
  const struct {
    KrThreadId (*spawn)(const char*);
    const char* shownStack;
    std::string (*shown)(KrThreadId);
  } table[] = {
      {detached, " ss:64000", asSigned}, {joinable, " ss:1048576", asUnsigned}, {withAttributes, nullptr, asUnsigned}};
  Growing log("/var/log/threads.log");
  (void)log.news();
  for (const auto& row : table) {
    ran = false;
    KrThreadId tid = KR_NO_THREAD;
    std::string console;
    std::string error = reported([&] {
      console = printed([&] {
        tid = row.spawn(name.c_str());
        void* result = &ran;
        EXPECT_EQ(row.spawn != detached ? krThreadJoin(tid, &result) : krThreadAwaitEnd(tid), 0);
        EXPECT_EQ(result, row.spawn != detached ? nullptr : &ran);
      });
    });
    EXPECT_TRUE(ran);
    EXPECT_EQ(stackSize >> 20 == 1, row.spawn == joinable); // the others get the system's default
    EXPECT_EQ(console, row.shownStack == nullptr
                           ? ""
                           : "krThreadSpawn " + name + row.shownStack +
                                 format(row.spawn == detached ? " p:50 tid:%ld\n" : " p:50 tid:%lu\n", tid));
    const auto [said, linux] = expectedPriority(tid, 50, 80);
    const std::string id = row.shown(tid), self = row.shown(krThreadIdSelf());
    const std::string lines = said + format("Thread [%s] (tid = %s); Linux Priority = %d; spawned by tid = %s\n",
                                            name.c_str(), id.c_str(), linux, self.c_str());
    const std::string spawned =
        "[0-9/]{5} [0-9:]{8}\\.[0-9]{2} \\[" + asUnsigned(krThreadIdSelf()) +
        format("\\] krThreadSpawn: Spawned Thread \\[%s\\] \\(tid = %s\\); Linux Priority = %d\n", name.c_str(),
               id.c_str(), linux);
    const std::string started =
        format("New thread, tid = %d / PID = %d / LWP id = [0-9]+\n", static_cast<int>(tid), getpid());
    const size_t at = error.find("New thread"); // printed by the thread itself, whenever it runs
    ASSERT_NE(at, std::string::npos);
    const size_t length = error.find("\n\n", at) + 2 - at;
    EXPECT_TRUE(matches(error.substr(at, length), started + "\n"));
    error.erase(at, length);
    EXPECT_EQ(error.substr(0, lines.size()), lines);
    EXPECT_TRUE(matches(error.substr(lines.size()), spawned + "\n"));
    if (access("/var/log", W_OK) != 0) continue;
    const std::string logged = log.news();
    for (const auto& line : {spawned, started}) // others may log there as well
      EXPECT_TRUE(matches(logged, "(.*\n)*" + line + "(.*\n)*"));
  }
}

TEST(Thread, DefaultStackSizeAndFailureToSpawn) {
  auto nothing = [] {};
  const std::pair<const char*, const char*> table[] = {
      {"", "0"},   {"nonsense", "0"}, {"131072", "131072"}, {"99999999999999999999", "2147483647"},
      {"5k", "5"}, {nullptr, "65536"}};
  for (const auto& [value, shown] : table) {
    (void)(value != nullptr ? setenv("KR_DEFAULT_STACKSIZE", value, 1) : unsetenv("KR_DEFAULT_STACKSIZE"));
    EXPECT_TRUE(matches(printed([&] { EXPECT_EQ(krThreadAwaitEnd(spawn(nothing)), 0); }),
                        "krThreadSpawn x ss:" + std::string(shown) + " p:-1 tid:[-0-9]+\n"));
  }
  int error = 0;
  std::string console;
  const std::string report = reported([&] {
    console = printed([&] {
      EXPECT_EQ(krThreadSpawn_joinable("x", 50, -1, checkArguments, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0), KR_NO_THREAD);
      error = errno;
    });
  });
  EXPECT_EQ(console, format("krThreadSpawn x ss:-1 p:50 tid:%lu\n", KR_NO_THREAD));
  EXPECT_EQ(report, format("krThreadSpawn Failed to spawn [x], errno = [0x%08x : %s]\n", static_cast<unsigned>(error),
                           strerror(error)));
}

TEST(Thread, Priorities) {
  const struct {
    int priority, linux, readBack;
  } table[] = {{0, 99, 0}, {1, 99, 0}, {50, 80, 49}, {128, 50, 126}, {254, 1, 253}, {255, 1, 253}};
  for (const auto& row : table)
    (void)onAnotherThread([&] { // where an urgent thread ends at once
      const auto [said, linux] = expectedPriority(krThreadIdSelf(), row.priority, row.linux);
      int readBack = -7;
      EXPECT_EQ(reported([&, allowed = linux != 0] {
                  EXPECT_EQ(krThreadSetPriority(krThreadIdSelf(), row.priority), allowed ? 0 : -1);
                }),
                said);
      EXPECT_EQ(krThreadGetPriority(krThreadIdSelf(), &readBack), 0);
      EXPECT_EQ(readBack, linux != 0 ? row.readBack : 256);
      return 0;
    });
  EXPECT_EQ(reported([] {
              for (const int wrong : {-2, 256, INT_MAX})
                EXPECT_EQ(errnoOf(krThreadSetPriority(krThreadIdSelf(), wrong)), KR_ERR_PRIORITY);
              EXPECT_EQ(krThreadSetPriority(krThreadIdSelf(), KR_KEEP_PRIORITY), 0);
            }),
            "");
}

TEST(Thread, IsCancelledAnywhereAndRefusedWhenItIsNone) {
  ran = false;
  auto spin = [] {
    for (ran = true;;) {
    }
  };
  const KrThreadId tid = spawn(spin);
  waitUntil([] { return ran.load(); });
  expectCancellable([=] { (void)krThreadAwaitEnd(tid); });
  EXPECT_EQ(krThreadDelete(tid), 0);
  for (int i = 0; i < 2; ++i)
    EXPECT_EQ(krThreadAwaitEnd(tid), 0);
  int out = 7;
  for (const KrThreadId none : {KR_NO_THREAD, KrThreadId{0}}) {
    EXPECT_EQ(krThreadDelete(none), ESRCH);
    EXPECT_EQ(krThreadJoin(none, nullptr), ESRCH);
    EXPECT_EQ(errnoOf(krThreadSetPriority(none, 5)), ESRCH);
    EXPECT_EQ(errnoOf(krThreadGetPriority(none, &out)), ESRCH);
    EXPECT_EQ(krThreadAwaitEnd(none), 0);
  }
  EXPECT_EQ(out, 7);
  EXPECT_EQ(krThreadResume(krThreadIdSelf()), -1);
  EXPECT_EQ(krThreadStackAvailable(krThreadIdSelf()), 0x7FFFFFFF);
  EXPECT_EQ(errnoOf(krThreadAwaitEnd(krThreadIdSelf())), EDEADLK);
}

// Of these the system keeps some stacks for later threads, and takes back the others.
TEST(Thread, IdsOfEndedThreadsAreRefusedAndThoseOfOtherThreadsAreNot) {
  std::atomic<bool> leave{false};
  auto waitToLeave = [&] {
    while (!leave)
      (void)krThreadSuspend(1);
  };
  const auto waitToStay = [](void* flag) -> void* {
    waitUntil([=] { return !*static_cast<std::atomic<bool>*>(flag); });
    return flag;
  };
  quietly([&] {
    std::vector<KrThreadId> ended(30), others(30); // the others get some of the handles
    for (KrThreadId& tid : ended)
      tid = spawn(waitToLeave);
    leave = true;
    int out = 7;
    for (const KrThreadId tid : ended) {
      EXPECT_EQ(krThreadAwaitEnd(tid), 0);
      EXPECT_EQ(krThreadDelete(tid), ESRCH);
      EXPECT_EQ(errnoOf(krThreadGetPriority(tid, &out)), ESRCH);
      EXPECT_EQ(errnoOf(krThreadSetPriority(tid, 5)), geteuid() == 0 ? ESRCH : EPERM);
      EXPECT_NE(krThreadJoin(tid, nullptr), 0);
    }
    for (KrThreadId& tid : others)
      ASSERT_EQ(pthread_create(&tid, nullptr, waitToStay, &leave), 0);
    for (const KrThreadId tid : others)
      EXPECT_EQ(krThreadGetPriority(tid, &out), 0);
    leave = false;
    for (const KrThreadId tid : others) {
      void* result = nullptr;
      EXPECT_EQ(krThreadJoin(tid, &result), 0);
      EXPECT_EQ(result, &leave);
      EXPECT_EQ(krThreadJoin(tid, nullptr), ESRCH);
    }
  });
}
