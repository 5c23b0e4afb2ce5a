#include "platform/krTime.h"

#include "platform/Diagnostic.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <sys/time.h>

TEST(Time, WallClockInSecondsAndWholeMicroseconds) {
  const time_t before = time(nullptr);
  KrTime now{};
  ASSERT_EQ(krGetTime(&now), 0);
  EXPECT_GE(now.seconds + 1u, static_cast<uint32_t>(before)); // time() may lag by a tick
  EXPECT_LE(now.seconds, static_cast<uint32_t>(time(nullptr)) + 1u);
  EXPECT_LT(now.nanoseconds, 1'000'000'000u);
  EXPECT_EQ(now.nanoseconds % 1000, 0u);
}

TEST(Time, Difference) {
  const struct {
    KrTime start, end;
    uint32_t milliseconds;
  } table[] = {
      {{10, 900'000'000}, {12, 100'000'000}, 1200},
      {{10, 0}, {9, 999'999'999}, 0},
      {{10, 0}, {10, 999'999}, 0},
      {{10, 999'999'999}, {11, 0}, 0},
      {{10, 999'000'000}, {11, 0}, 1},
      {{0, 0}, {4'294'967, 296'000'000}, 0}, // 2^32 ms
      {{0, 0}, {UINT32_MAX, 0}, static_cast<uint32_t>(UINT32_MAX * 1000ull)},
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
  const std::string line = kr::stampedLine("%0600d", 0).text;
  EXPECT_EQ(line.size(), 511u);
  EXPECT_EQ(line.find("] 000"), line.find(']'));
}

TEST(Time, SuspendSleepsAtLeastThatLong) {
  KrTime start{}, end{};
  ASSERT_EQ(krGetTime(&start), 0);
  EXPECT_EQ(krThreadSuspend(0), 0);
  EXPECT_EQ(krThreadSuspend(1050), 0);
  EXPECT_EQ(krThreadPause(KR_NO_THREAD), 0);
  ASSERT_EQ(krGetTime(&end), 0);
  EXPECT_GE(krDiffTime(start, end), 1050u);
  errno = 0;
  EXPECT_EQ(krThreadSuspend(-5), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST(Time, SuspendEndsWithASignal) {
  struct sigaction action {};
  action.sa_handler = [](int) {};
  ASSERT_EQ(sigaction(SIGALRM, &action, nullptr), 0);
  const itimerval soon{{0, 0}, {0, 20'000}};
  ASSERT_EQ(setitimer(ITIMER_REAL, &soon, nullptr), 0);
  errno = 0;
  EXPECT_EQ(krThreadSuspend(60'000), -1);
  EXPECT_EQ(errno, EINTR);
}

TEST(Time, Self) {
  EXPECT_TRUE(pthread_equal(krThreadIdSelf(), pthread_self()));
  EXPECT_STREQ(krThreadName(krThreadIdSelf()), "");
  EXPECT_STREQ(krThreadName(KR_NO_THREAD), "");
}
