#include "platform/krLog.h"

#include "platform/internal/Uncancelled.h"
#include "tests/Threads.h"

using std::string;
using namespace testing::internal; // for capturing the console

namespace {

string printed;
void plain(const char* message) { printed += string("|") + message; }
void other(const char* message) { printed += string("/") + message; }
void context(intptr_t number, const char* message) { printed += std::to_string(number) + message; }

/// What the printers of a logger make of a message.
string taken(KrLogger* logger, void (*call)(KrLogger*, const char*, ...)) {
  call(logger, "%s", "m");
  return std::exchange(printed, "");
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
  string descents;
  for (const KrLogger* ancestor : {static_cast<KrLogger*>(nullptr), root, a, abc, krLogGetLogger("ab.c")})
    for (const KrLogger* logger : {static_cast<KrLogger*>(nullptr), root, a, abc, krLogGetLogger("ab.c")})
      descents += isChild(ancestor, logger) ? '1' : '0';
  EXPECT_EQ(descents, "0011100111000100000000000");
  KrLogger* const longest = krLogGetLogger(string(300, 'n').c_str());
  EXPECT_EQ(krLogGetLogger((string(256, 'n') + "x").c_str()), longest);
  string names;
  for (int i = -1; i <= krLogGetLoggerCount(); ++i)
    names += krLogGetLoggerName(i) + string(" ");
  EXPECT_EQ(names, " " + string(256, 'n') + " ab.c a.b.c a comps.kr   ");
  krLogReset();
  EXPECT_EQ(krLogGetLoggerCount(), 0);
  EXPECT_EQ(krLogGetLevel(krLogGetLogger("a")), KR_LOG_INFO);
  EXPECT_EQ(krLogGetLevel(nullptr), -1);
  EXPECT_EQ(krLogGetPrinterLevel(nullptr, "p"), -1);
}

TEST(Log, MessagesPassByLevelAndReachTheConsoleWithoutPrinters) {
  void (*const calls[])(KrLogger*, const char*, ...) = {krFatal, krError, krWarn, krInfo, krDebug};
  KrLogger* const logger = krLogGetLogger("x");
  string expected;
  CaptureStdout();
  for (int level = KR_LOG_OFF - 1; level <= KR_LOG_DEBUG; ++level) {
    krLogSetLevel(logger, level);
    for (int m = KR_LOG_FATAL; m <= KR_LOG_DEBUG; ++m) {
      calls[m - 1](logger, "%s %d", "level", m);
      calls[m - 1](nullptr, "never");
      if (m <= level) expected += "level " + std::to_string(m) + "\n\r\n\n";
    }
  }
  krError(logger, "%s", string(300, 'm').c_str());
  EXPECT_EQ(GetCapturedStdout(), expected + string(255, 'm') + "\n\r\n\n");
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
  CaptureStdout();
  krLogList();
  EXPECT_EQ(GetCapturedStdout(),
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
    std::atomic<bool> ended{false};
    std::thread thread([&] {
      (void)pthread_setcanceltype(asynchronous ? PTHREAD_CANCEL_ASYNCHRONOUS : PTHREAD_CANCEL_DEFERRED, nullptr);
      kr::asynchronousThread = asynchronous;
      krInfo(logger, "x");
      ended = true;
    });
    waitUntil([] { return begun != 0; });
    EXPECT_EQ(pthread_cancel(thread.native_handle()), 0);
    thread.join();
    EXPECT_TRUE(!ended || asynchronous);
    EXPECT_EQ(done, asynchronous ? 1 : 0); // asynchronously, it would be ended anywhere in the printer
    krInfo(logger, "free");
    EXPECT_EQ(done, asynchronous ? 2 : 1);
  }
}
