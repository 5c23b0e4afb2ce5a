// Work on other threads, for the tests of locks and threads.
#ifndef TEV_TESTS_PLATFORM_ELSEWHERE_H
#define TEV_TESTS_PLATFORM_ELSEWHERE_H

#include "platform/kr.h"

#include <atomic>
#include <cerrno>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <thread>

inline int lock(KrMutex* mutex, int timeoutMs) { return krMutexLockDebug(mutex, timeoutMs, "a.cpp", 7, "f", "d"); }
inline int readLock(KrReadWrite* rw) { return krReadLockDebug(rw, "b.cpp", 8, "r"); }
inline int writeLock(KrReadWrite* rw) { return krWriteLockDebug(rw, "b.cpp", 9, "w"); }

/// Runs `work` on another thread to its end and returns its result.
template <class Work>
int elsewhere(Work work) {
  int result = 0;
  std::thread([&] { result = work(); }).join();
  return result;
}

/// errno of a call that returned -1, 0 of one that did not.
inline int errnoOf(int result) { return result == -1 ? errno : 0; }

/// Whether the whole text matches an extended POSIX expression.
inline bool matches(const std::string& text, const std::string& expression) {
  return testing::internal::RE::FullMatch(text, testing::internal::RE(expression));
}

template <class Condition>
void waitUntil(Condition condition) {
  while (!condition())
    krThreadSuspend(1);
}

/// A POSIX thread that does `work`, in the given cancellation type, until it returns or is cancelled.
class Cancellable {
public:
  Cancellable(int type, std::function<void()> work) : type_(type), work_(std::move(work)) {
    EXPECT_EQ(pthread_create(&thread_, nullptr, run, this), 0);
    waitUntil([this] { return started_.load(); });
  }
  /// Whether it had to be cancelled to end.
  bool cancel() {
    EXPECT_EQ(pthread_cancel(thread_), 0);
    void* result = nullptr;
    EXPECT_EQ(pthread_join(thread_, &result), 0);
    return result == PTHREAD_CANCELED;
  }

private:
  static void* run(void* argument) {
    auto& self = *static_cast<Cancellable*>(argument);
    (void)pthread_setcanceltype(self.type_, nullptr);
    self.started_ = true;
    self.work_();
    return nullptr;
  }
  const int type_;
  const std::function<void()> work_;
  std::atomic<bool> started_{false};
  pthread_t thread_{};
};

#endif
