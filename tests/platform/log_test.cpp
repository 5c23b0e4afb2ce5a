#include "platform/krLog.h"

#include "platform/internal/Uncancelled.h"
#include "tests/Threads.h"

#include <vector>

using std::string;

namespace {

string received;
void plain(const char* message) { received += string("|") + message; }
void other(const char* message) { received += string("/") + message; }
void context(intptr_t number, const char* message) { received += std::to_string(number) + message; }

/// What the printers of a logger make of a message.
string taken(KrLogger* logger, void (*call)(KrLogger*, const char*, ...)) {
  call(logger, "%s", "m");
  return std::exchange(received, "");
}

} // namespace

TEST(Log, LookUpMakesTheRootAndTheLoggerButNothingBetween) {
  EXPECT_EQ(krLogGetLoggerCount(), 0);
  krLogSetLevelByName("", KR_LOG_OFF); // there is none yet
  KrLogger* const leaf = krLogGetLogger("comps.kr");
  KrLogger* const root = krLogGetLogger(nullptr);
  EXPECT_EQ(krLogGetLevel(root), KR_LOG_INFO);
  EXPECT_EQ(krLogGetLevel(leaf), KR_LOG_INFO);
  EXPECT_EQ(getLogger("comps"), nullptr);
  KrLogger* const a = krLogGetLogger("a");
  krLogSetLevelByName("a", KR_LOG_ERROR);
  krLogSetLevelByName("b", KR_LOG_OFF);
  krLogSetFormatter(a, string(300, 'f').c_str());
  KrLogger* const abc = krLogGetLogger("a.b.c");
  krLogSetLevel(a, KR_LOG_DEBUG); // stays with a, and so does the formatter
  krLogSetFormatter(a, nullptr);
  EXPECT_STREQ(krLogGetFormatter(a), "");
  EXPECT_EQ(krLogGetFormatter(abc), string(256, 'f'));
  EXPECT_EQ(krLogGetLevel(abc), KR_LOG_ERROR);
  for (const auto& [name, parent] :
       {std::pair{"a.b.c.d", abc}, {"a.b.cd", a}, {"a..b", a}, {"ab.c", root}, {".a", root}})
    EXPECT_EQ(getParent(name), parent) << name;
  for (const char* ancestor : {"", "none"}) // no logger counts as the root
    for (const char* logger : {"a", "a.b.c", "ab.c"})
      EXPECT_TRUE(isChild(getLogger(ancestor), krLogGetLogger(logger))) << ancestor << " and " << logger;
  EXPECT_TRUE(isChild(a, abc));
  for (const auto& [other, logger] : {std::pair{"none", "none"},
                                      {"none", ""},
                                      {"", "none"},
                                      {"", ""},
                                      {"a", "none"},
                                      {"a", ""},
                                      {"a", "a"},
                                      {"a", "ab.c"},
                                      {"a.b.c", "a"},
                                      {"ab.c", "a.b.c"}})
    EXPECT_FALSE(isChild(getLogger(other), getLogger(logger))) << other << " and " << logger;
  const string longest(256, 'n');
  EXPECT_EQ(krLogGetLogger((longest + "x").c_str()), krLogGetLogger((longest + "yz").c_str()));
  int number = -1;
  for (const string& name : std::vector<string>{"", longest, "ab.c", "a.b.c", "a", "comps.kr", "", ""})
    EXPECT_EQ(krLogGetLoggerName(number++), name);
  EXPECT_EQ(number, krLogGetLoggerCount() + 1);
  krLogReset();
  EXPECT_EQ(krLogGetLoggerCount(), 0);
  EXPECT_EQ(krLogGetLevel(krLogGetLogger("a")), KR_LOG_INFO);
  EXPECT_EQ(krLogGetLevel(nullptr), -1);
  EXPECT_EQ(krLogGetPrinterLevel(nullptr, "p"), -1);
}

TEST(Log, MessagesPassByLevelAndReachTheConsoleWithoutPrinters) {
  void (*const calls[])(KrLogger*, const char*, ...) = {krFatal, krError, krWarn, krInfo, krDebug};
  KrLogger* const logger = krLogGetLogger("x");
  for (int level = KR_LOG_OFF - 1; level <= KR_LOG_DEBUG; ++level) {
    krLogSetLevel(logger, level);
    for (int m = KR_LOG_FATAL; m <= KR_LOG_DEBUG; ++m) {
      EXPECT_EQ(printed([&] { calls[m - 1](logger, "%s %d", "level", m); }),
                m <= level ? format("level %d\n\r\n\n", m) : "");
      EXPECT_EQ(printed([&] { calls[m - 1](nullptr, "never"); }), "");
    }
  }
  EXPECT_EQ(printed([&] { krError(logger, "%s", string(300, 'm').c_str()); }), string(255, 'm') + "\n\r\n\n");
}

TEST(Log, PrintersReachDescendantsNewestFirst) {
  KrLogger* const root = krLogGetLogger("");
  KrLogger* const ab = krLogGetLogger("a.b");
  krLogAddPrinter(root, "p", plain);
  krLogAddPrinter(root, "p", other);
  krLogAddContextPrinter(ab, "p", 7, context);
  krLogAddContextPrinter(ab, "p", 30, context);
  KrLogger* const abc = krLogGetLogger("a.b.c"); // inherits: the other way round
  krLogSetPrinterLevel(ab, "p", KR_LOG_WARN);    // of the newest plain one, on this logger alone
  krLogSetContextPrinterLevel(ab, "p", 7, KR_LOG_FATAL);
  krLogAddPrinter(nullptr, "p", plain);
  EXPECT_EQ(taken(root, krInfo), "/m|m");
  EXPECT_EQ(taken(abc, krInfo), "|m/m7m30m");
  EXPECT_EQ(taken(ab, krInfo), "30m|m");
  EXPECT_EQ(taken(ab, krWarn), "30m/m|m");
  EXPECT_EQ(taken(ab, krFatal), "30m7m/m|m");
  EXPECT_EQ(krLogGetPrinterLevel(ab, "p"), KR_LOG_WARN);
  EXPECT_EQ(krLogGetContextPrinterLevel(ab, "p", 7), KR_LOG_FATAL);
  EXPECT_EQ(krLogGetPrinterLevel(ab, "q"), -1);
  EXPECT_EQ(krLogGetContextPrinterLevel(ab, "p", 8), -1);
  EXPECT_EQ(printed(krLogList),
            " - 'a.b.c' level = 4  -- 'p' level = 5 -- 'p' level = 5 -- 'p 7' level = 5 -- 'p 1e' level = 5\n"
            " - 'a.b' level = 4  -- 'p 1e' level = 5 -- 'p 7' level = 1 -- 'p' level = 3 -- 'p' level = 5\n"
            " - '' level = 4  -- 'p' level = 5 -- 'p' level = 5\n");
  krLogRemovePrinter(root, "p");
  krLogRemoveContextPrinter(ab, "p", 7);
  krLogRemoveContextPrinter(ab, "p", 9);
  EXPECT_EQ(taken(root, krFatal), "|m");
  EXPECT_EQ(taken(ab, krFatal), "30m|m");
  EXPECT_EQ(taken(abc, krFatal), "/m30m");
  KrLogPrinter record{KR_LOG_CONTEXT, KR_LOG_FATAL, 5, nullptr, context, "", nullptr};
  string(256, 'n').copy(record.name, KR_LOG_MAX_NAME);
  krLogInsertPrinter(root, &record);
  EXPECT_EQ(krLogGetContextPrinterLevel(root, string(300, 'n').c_str(), 5), KR_LOG_FATAL);
  EXPECT_EQ(krLogGetContextPrinterLevel(ab, record.name, 5), -1); // on this one alone
  krLogDeletePrinter(root, &record);
  EXPECT_EQ(taken(root, krFatal), "|m");
}

TEST(Log, ThreadsGetTheSameNewLogger) {
  krLogGetLogger("");
  ASSERT_EQ(lock(g_listMutex.load(), KR_WAIT_FOREVER), 0);
  KrLogger* made[2];
  std::thread one([&] { made[0] = krLogGetLogger("new"); }), two([&] { made[1] = krLogGetLogger("new"); });
  krThreadSuspend(100); // both have found none
  krMutexUnlock(g_listMutex.load());
  one.join();
  two.join();
  EXPECT_EQ(made[0], made[1]);
  EXPECT_EQ(krLogGetLoggerCount(), 2);
}

TEST(Log, CancelledThreadLeavesTheLoggerFree) {
  static std::atomic<int> begun{0}, done{0};
  KrLogger* const logger = krLogGetLogger("x");
  krLogAddPrinter(logger, "slow", [](const char*) {
    ++begun;
    krThreadSuspend(100);
    ++done;
  });
  for (const bool asynchronous : {false, true}) {
    begun = done = 0;
    std::thread thread([&] {
      (void)pthread_setcanceltype(asynchronous ? PTHREAD_CANCEL_ASYNCHRONOUS : PTHREAD_CANCEL_DEFERRED, nullptr);
      kr::asynchronousThread = asynchronous;
      krInfo(logger, "x");
    });
    waitUntil([] { return begun != 0; });
    EXPECT_EQ(pthread_cancel(thread.native_handle()), 0);
    thread.join();
    EXPECT_EQ(done, asynchronous ? 1 : 0); // asynchronously, it would be ended anywhere in the printer
    krInfo(logger, "free");
    EXPECT_EQ(done, asynchronous ? 2 : 1);
  }
}
