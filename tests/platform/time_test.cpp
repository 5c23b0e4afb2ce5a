#include "tests/Threads.h"

#include "platform/internal/Diagnostic.h"

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sys/time.h>

TEST(Time, Difference) {
  const struct {
    KrTime start, end;
    uint32_t milliseconds;
  } table[] = {
      {{10, 900'000'000}, {12, 100'000'000}, 1200},
      {{10, 0}, {9, 999'999'999}, 0},
      {{10, 0}, {10, 999'999}, 0},
      {{10, 999'000'000}, {11, 0}, 1},
      {{0, 0}, {4'294'967, 296'000'000}, 0}, // 2^32 ms
      {{10, 500'000'000}, {10, 400'000'000}, static_cast<uint32_t>(-100)},
  };
  for (const auto& row : table)
    EXPECT_EQ(krDiffTime(row.start, row.end), row.milliseconds) << row.end.seconds << ' ' << row.end.nanoseconds;
}

TEST(Time, StampIsLocalTimeToTheHundredth) {
  ASSERT_EQ(setenv("TZ", "XYZ-2", 1), 0); // two hours east of Greenwich
  tzset();
  // 3 March 2009 12:05:09.372 UTC; a thread id wider than 32 bits shows its low half.
  const auto tid = static_cast<KrThreadId>(0x1'8000'0001ull);
  EXPECT_STREQ(kr::stamp({1236081909, 372'000'000}, tid).text, "03/03 14:05:09.37 [2147483649]");
  EXPECT_TRUE(matches(kr::stampedLine("%0600d", 0).text, "[^]]*\\] 0*"));
  EXPECT_EQ(strlen(kr::stampedLine("%0600d", 0).text), 511u);
}

TEST(Time, SuspendSleepsAtLeastThatLong) {
  const auto before = static_cast<uint32_t>(time(nullptr));
  KrTime start{}, end{};
  ASSERT_EQ(krGetTime(&start), 0);
  EXPECT_LE(start.seconds - before, 60u);
  EXPECT_EQ(start.nanoseconds % 1000, 0u);
  EXPECT_EQ(krThreadSuspend(0), 0);
  EXPECT_EQ(krThreadSuspend(1050), 0);
  EXPECT_EQ(krThreadPause(KR_NO_THREAD), 0);
  ASSERT_EQ(krGetTime(&end), 0);
  EXPECT_GE(krDiffTime(start, end), 1050u);
  EXPECT_EQ(errnoOf(krThreadSuspend(-5)), EINVAL);
  struct sigaction action {};
  action.sa_handler = [](int) {};
  ASSERT_EQ(sigaction(SIGALRM, &action, nullptr), 0);
  const itimerval soon{{0, 0}, {0, 20'000}};
  ASSERT_EQ(setitimer(ITIMER_REAL, &soon, nullptr), 0);
  EXPECT_EQ(errnoOf(krThreadSuspend(60'000)), EINTR);
  EXPECT_STREQ(krThreadName(krThreadIdSelf()), "");
}
