// Sequences of lock calls by three threads, one call at a time, beside a model that says what each call must answer.
// Calls that would wait for ever are left out.
#include "fuzz/Check.h"
#include "fuzz/StandIns.h"

#include "platform/krLock.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <condition_variable>
#include <functional>
#include <fuzzer/FuzzedDataProvider.h>
#include <mutex>
#include <numeric>
#include <thread>

namespace {

constexpr int threads = 3;
constexpr int nobody = -1;

/// A result and the errno that goes with a failure.
struct Answer {
  int result;
  int reason; ///< 0 for success

  bool operator==(const Answer& other) const { return result == other.result && reason == other.reason; }
};
constexpr Answer done = {0, 0};

/// A thread that makes calls for others.
class Caller {
public:
  Caller() {
    std::thread([this] { serve(); }).detach(); // ends with the process
  }

  Answer make(const std::function<int()>& call) {
    std::unique_lock<std::mutex> lock(mutex_);
    call_ = &call;
    changed_.notify_all();
    changed_.wait(lock, [this] { return call_ == nullptr; });
    return answer_;
  }

private:
  void serve() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
      changed_.wait(lock, [this] { return call_ != nullptr; });
      errno = 0;
      const int result = (*call_)();
      answer_ = {result, result < 0 ? errno : 0};
      call_ = nullptr;
      changed_.notify_all();
    }
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  const std::function<int()>* call_ = nullptr;
  Answer answer_ = {};
};

class Locks {
public:
  explicit Locks(FuzzedDataProvider& data)
      : data_(data), value_(data.ConsumeBool() ? data.ConsumeIntegralInRange(0U, 3U) : unsigned{INT_MAX} - 1),
        mutex_(krMutexCreate()), lock_(krReadWriteCreate()), sem_(krSemCreate(value_)), cond_(krCondCreate()) {
    FUZZ_CHECK(mutex_ != nullptr && lock_ != nullptr && sem_ != nullptr && cond_ != nullptr);
  }

  void step() {
    self_ = data_.ConsumeIntegralInRange(0, threads - 1);
    switch (data_.ConsumeIntegralInRange(0, 9)) {
    case 0:
      return lockMutex();
    case 1:
      return unlockMutex();
    case 2:
      return readLock();
    case 3:
      return readUnlock();
    case 4:
      return writeLock();
    case 5:
      return writeUnlock();
    case 6:
      return take();
    case 7:
      return give();
    case 8:
      return wait();
    default:
      return signal();
    }
  }

  /// Everybody gives back what they have.
  void end() {
    for (self_ = 0; self_ < threads; ++self_) {
      while (owner_ == self_)
        unlockMutex();
      while (writer_ == self_)
        writeUnlock();
      while (reads_[self_] > 0)
        readUnlock();
    }
    krMutexDestroy(mutex_);
    krReadWriteDestroy(lock_);
    krSemDestroy(sem_);
    krCondDestroy(cond_);
  }

private:
  void expect(Answer expected, const std::function<int()>& call) const {
    static auto* const callers = new Caller[threads]; // never destroyed: their threads wait in them
    FUZZ_CHECK(callers[self_].make(call) == expected);
  }

  /// A timeout that is over soon; for a call that would not wait also none.
  int timeout(bool waits) {
    constexpr int few[] = {KR_NO_WAIT, -2, INT_MIN, 1};
    const int picked = data_.PickValueInArray(few);
    if (picked == 1 && waits && ++waited_ > 2) return KR_NO_WAIT; // a millisecond each
    return !waits && data_.ConsumeBool() ? KR_WAIT_FOREVER : picked;
  }

  void lockMutex() {
    const bool taken = owner_ != nobody && owner_ != self_;
    const int time = timeout(taken);
    const Answer refused = {-1, time == KR_NO_WAIT ? EBUSY : KR_ERR_TIMEOUT};
    expect(taken ? refused : done, [=] { return krMutexLockDebug(mutex_, time, "", 0, "", ""); });
    if (!taken) obtainMutex();
  }

  void obtainMutex() {
    owner_ = lastOwner_ = self_;
    ++depth_;
  }

  void releaseMutex() {
    if (depth_ > 0 && --depth_ == 0) owner_ = nobody;
  }

  void unlockMutex() {
    const bool mine = lastOwner_ == self_;
    expect(mine ? done : Answer{-1, EPERM}, [=] { return krMutexUnlock(mutex_); });
    if (mine) releaseMutex();
  }

  void readLock() {
    const bool inside = reads_[self_] > 0;
    const bool writes = writer_ == self_;
    if (!inside && !writes && writer_ != nobody) return;
    const bool refused = !inside && writes;
    expect(refused ? Answer{-1, KR_ERR_INVALID} : done, [=] { return krReadLockDebug(lock_, "", 0, ""); });
    if (!refused) ++reads_[self_];
  }

  void readUnlock() {
    const bool inside = reads_[self_] > 0;
    expect(inside ? done : Answer{-1, EPERM}, [=] { return krReadUnlock(lock_); });
    if (inside) --reads_[self_];
  }

  void writeLock() {
    const bool othersRead = std::accumulate(reads_, reads_ + threads, 0) > reads_[self_];
    if (writer_ != self_ && (writer_ != nobody || othersRead)) return;
    expect(done, [=] { return krWriteLockDebug(lock_, "", 0, ""); });
    writer_ = self_;
    ++writes_;
  }

  void writeUnlock() {
    const bool mine = writer_ == self_;
    expect(mine ? done : Answer{-1, EPERM}, [=] { return krWriteUnlock(lock_); });
    if (mine && --writes_ == 0) writer_ = nobody;
  }

  void take() {
    const int time = timeout(value_ == 0);
    const Answer refused = {-1, time == KR_NO_WAIT ? EAGAIN : KR_ERR_TIMEOUT};
    expect(value_ == 0 ? refused : done, [=] { return krSemTake(sem_, time); });
    if (value_ > 0) --value_;
    expect({static_cast<int>(value_), 0}, [=] { return krSemGetValue(sem_); });
  }

  void give() {
    const bool full = value_ == unsigned{INT_MAX};
    expect(full ? Answer{-1, EOVERFLOW} : done, [=] { return krSemGive(sem_); });
    if (!full) ++value_;
    krSemFlush(sem_);
  }

  void wait() {
    const bool mine = lastOwner_ == self_;
    expect(mine ? done : Answer{-1, EPERM}, [=] { return krCondWait(cond_, mutex_); });
    if (!mine) return;
    releaseMutex();
    obtainMutex();
  }

  void signal() {
    expect(done, [=] { return krCondSignal(cond_); });
    expect({-1, ENOSYS}, [=] { return krCondTimedWait(cond_, mutex_, 1); });
  }

  FuzzedDataProvider& data_;
  int self_ = 0;
  int waited_ = 0;
  int owner_ = nobody;
  int lastOwner_ = nobody;
  int depth_ = 0;
  int writer_ = nobody;
  int writes_ = 0;
  int reads_[threads] = {};
  unsigned value_;
  KrMutex* const mutex_;
  KrReadWrite* const lock_;
  KrSem* const sem_;
  KrCond* const cond_;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  StandIns quick; // a condition's pause takes no time
  FuzzedDataProvider data(bytes, size);
  Locks locks(data);
  while (data.remaining_bytes() > 0)
    locks.step();
  locks.end();
  return 0;
}
