// Locks as one place of the source takes them, work on other threads, and what is printed meanwhile.
#ifndef TEV_TESTS_THREADS_H
#define TEV_TESTS_THREADS_H

#include "platform/kr.h"
#include "tests/Files.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <thread>

inline int lock(KrMutex* mutex, int timeoutMs) { return krMutexLockDebug(mutex, timeoutMs, "a.cpp", 7, "f", "d"); }
inline int readLock(KrReadWrite* rw) { return krReadLockDebug(rw, "b.cpp", 8, "r"); }
inline int writeLock(KrReadWrite* rw) { return krWriteLockDebug(rw, "b.cpp", 9, "w"); }

/// errno of a call that returned -1, 0 of one that did not.
inline int errnoOf(int result) { return result == -1 ? errno : 0; }

/// Runs `work` on another thread to its end and returns its result.
inline int onAnotherThread(const std::function<int()>& work) {
  int result = 0;
  std::thread([&] { result = work(); }).join();
  return result;
}

/// Spawns a thread for `work`, which has to outlive it, and in which a cancelled one leaves no destructor uncalled.
template <class Work>
KrThreadId spawn(Work& work) {
  const KrThreadEntry entry = [](intptr_t itself, auto...) {
    (*reinterpret_cast<Work*>(itself))();
    return 0;
  };
  return krThreadSpawn("x", KR_KEEP_PRIORITY, 0, entry, reinterpret_cast<intptr_t>(&work), 0, 0, 0, 0, 0, 0, 0, 0, 0);
}

/// Ends a thread of spawn(), which may have ended.
inline void cancelAndAwait(KrThreadId tid) {
  (void)krThreadDelete(tid);
  ASSERT_EQ(krThreadAwaitEnd(tid), 0);
}

/// Whether threads can be cancelled between any two instructions: not with the clean-up code of the thread sanitizer.
#if defined(__SANITIZE_THREAD__)
constexpr bool cancelsAnywhere = false;
#else
constexpr bool cancelsAnywhere = true;
#endif
inline constexpr char notAnywhere[] =
    "the thread sanitizer's clean-up code cannot be cancelled between any two instructions";

/// Fails when that takes more than a minute.
inline void waitUntil(const std::function<bool()>& condition) {
  for (int waited = 0; !condition(); ++waited) {
    ASSERT_LT(waited, 60'000);
    krThreadSuspend(1);
  }
}

/// What `work` prints on standard output.
inline std::string printed(const std::function<void()>& work) {
  testing::internal::CaptureStdout();
  work();
  return testing::internal::GetCapturedStdout();
}

/// What `work` prints on standard error.
inline std::string reported(const std::function<void()>& work) {
  testing::internal::CaptureStderr();
  work();
  return testing::internal::GetCapturedStderr();
}

/// Runs `work`; what it prints on standard output and standard error is lost.
inline void quietly(const std::function<void()>& work) {
  (void)reported([&] { (void)printed(work); });
}

/// Whether the whole text matches an extended POSIX expression.
inline testing::AssertionResult matches(const std::string& text, const std::string& expression) {
  if (testing::internal::RE::FullMatch(text, testing::internal::RE(expression))) return testing::AssertionSuccess();
  return testing::AssertionFailure() << text << "does not match " << expression;
}

inline __attribute__((format(printf, 1, 2))) std::string format(const char* format, ...) {
  char text[2048];
  va_list arguments;
  va_start(arguments, format);
  EXPECT_LT(vsnprintf(text, sizeof text, format, arguments), static_cast<int>(sizeof text));
  va_end(arguments);
  return text;
}

/// Lets `work` wait on a thread of either cancellation type and expects that it has to be cancelled to end.
inline void expectCancellable(const std::function<void()>& work) {
  for (const int type : {PTHREAD_CANCEL_DEFERRED, PTHREAD_CANCEL_ASYNCHRONOUS}) {
    std::atomic<bool> began{false}, ended{false};
    std::thread thread([&] {
      (void)pthread_setcanceltype(type, nullptr);
      began = true;
      work();
      ended = true;
    });
    waitUntil([&] { return began.load(); });
    krThreadSuspend(50); // for it to wait; else it is cancelled where it begins to
    EXPECT_EQ(pthread_cancel(thread.native_handle()), 0);
    thread.join();
    EXPECT_FALSE(ended);
  }
}

#endif
