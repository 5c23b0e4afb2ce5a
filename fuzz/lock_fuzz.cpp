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
    std::unique_lock<std::mutex> lock(_mutex);
    _call = &call;
    _changed.notify_all();
    _changed.wait(lock, [this] { return _call == nullptr; });
    return _answer;
  }

private:
  void serve() {
    std::unique_lock<std::mutex> lock(_mutex);
    for (;;) {
      _changed.wait(lock, [this] { return _call != nullptr; });
      errno = 0;
      const int result = (*_call)();
      _answer = {result, result < 0 ? errno : 0};
      _call = nullptr;
      _changed.notify_all();
    }
  }

  std::mutex _mutex;
  std::condition_variable _changed;
  const std::function<int()>* _call = nullptr;
  Answer _answer = {};
};

class Locks {
public:
  explicit Locks(FuzzedDataProvider& data)
      : _data(data), _value(data.ConsumeBool() ? data.ConsumeIntegralInRange(0U, 3U) : unsigned{INT_MAX} - 1),
        _mutex(krMutexCreate()), _lock(krReadWriteCreate()), _sem(krSemCreate(_value)), _cond(krCondCreate()) {
    FUZZ_CHECK(_mutex != nullptr && _lock != nullptr && _sem != nullptr && _cond != nullptr);
  }

  void step() {
    _self = _data.ConsumeIntegralInRange(0, threads - 1);
    constexpr void (Locks::*calls[])() = {&Locks::lockMutex, &Locks::unlockMutex, &Locks::readLock, &Locks::readUnlock,
                                          &Locks::writeLock, &Locks::writeUnlock, &Locks::take,     &Locks::give,
                                          &Locks::wait,      &Locks::signal};
    (this->*_data.PickValueInArray(calls))();
  }

  /// Everybody gives back what they have.
  void end() {
    for (_self = 0; _self < threads; ++_self) {
      while (_owner == _self)
        unlockMutex();
      while (_writer == _self)
        writeUnlock();
      while (_reads[_self] > 0)
        readUnlock();
    }
    krMutexDestroy(_mutex);
    krReadWriteDestroy(_lock);
    krSemDestroy(_sem);
    krCondDestroy(_cond);
  }

private:
  void expect(Answer expected, const std::function<int()>& call) const {
    static auto* const callers = new Caller[threads]; // never destroyed: their threads wait in them
    FUZZ_CHECK(callers[_self].make(call) == expected);
  }

  /// A timeout that is over soon; for a call that would not wait also none.
  int timeout(bool waits) {
    constexpr int few[] = {KR_NO_WAIT, -2, INT_MIN, 1};
    const int picked = _data.PickValueInArray(few);
    if (picked == 1 && waits && ++_waited > 2) return KR_NO_WAIT; // a millisecond each
    return !waits && _data.ConsumeBool() ? KR_WAIT_FOREVER : picked;
  }

  void lockMutex() {
    const bool taken = _owner != nobody && _owner != _self;
    const int time = timeout(taken);
    const Answer refused = {-1, time == KR_NO_WAIT ? EBUSY : KR_ERR_TIMEOUT};
    expect(taken ? refused : done, [=] { return krMutexLockDebug(_mutex, time, "", 0, "", ""); });
    if (!taken) obtainMutex();
  }

  void obtainMutex() {
    _owner = _lastOwner = _self;
    ++_depth;
  }

  void releaseMutex() {
    if (_depth > 0 && --_depth == 0) _owner = nobody;
  }

  void unlockMutex() {
    const bool mine = _lastOwner == _self;
    expect(mine ? done : Answer{-1, EPERM}, [=] { return krMutexUnlock(_mutex); });
    if (mine) releaseMutex();
  }

  void readLock() {
    const bool inside = _reads[_self] > 0;
    const bool writes = _writer == _self;
    if (!inside && !writes && _writer != nobody) return;
    const bool refused = !inside && writes;
    expect(refused ? Answer{-1, KR_ERR_INVALID} : done, [=] { return krReadLockDebug(_lock, "", 0, ""); });
    if (!refused) ++_reads[_self];
  }

  void readUnlock() {
    const bool inside = _reads[_self] > 0;
    expect(inside ? done : Answer{-1, EPERM}, [=] { return krReadUnlock(_lock); });
    if (inside) --_reads[_self];
  }

  void writeLock() {
    const bool othersRead = std::accumulate(_reads, _reads + threads, 0) > _reads[_self];
    if (_writer != _self && (_writer != nobody || othersRead)) return;
    expect(done, [=] { return krWriteLockDebug(_lock, "", 0, ""); });
    _writer = _self;
    ++_writes;
  }

  void writeUnlock() {
    const bool mine = _writer == _self;
    expect(mine ? done : Answer{-1, EPERM}, [=] { return krWriteUnlock(_lock); });
    if (mine && --_writes == 0) _writer = nobody;
  }

  void take() {
    const int time = timeout(_value == 0);
    const Answer refused = {-1, time == KR_NO_WAIT ? EAGAIN : KR_ERR_TIMEOUT};
    expect(_value == 0 ? refused : done, [=] { return krSemTake(_sem, time); });
    if (_value > 0) --_value;
    expect({static_cast<int>(_value), 0}, [=] { return krSemGetValue(_sem); });
  }

  void give() {
    const bool full = _value == unsigned{INT_MAX};
    expect(full ? Answer{-1, EOVERFLOW} : done, [=] { return krSemGive(_sem); });
    if (!full) ++_value;
    krSemFlush(_sem);
  }

  void wait() {
    const bool mine = _lastOwner == _self;
    expect(mine ? done : Answer{-1, EPERM}, [=] { return krCondWait(_cond, _mutex); });
    if (!mine) return;
    releaseMutex();
    obtainMutex();
  }

  void signal() {
    expect(done, [=] { return krCondSignal(_cond); });
    expect({-1, ENOSYS}, [=] { return krCondTimedWait(_cond, _mutex, 1); });
  }

  FuzzedDataProvider& _data;
  int _self = 0;
  int _waited = 0;
  int _owner = nobody;
  int _lastOwner = nobody;
  int _depth = 0;
  int _writer = nobody;
  int _writes = 0;
  int _reads[threads] = {};
  unsigned _value;
  KrMutex* const _mutex;
  KrReadWrite* const _lock;
  KrSem* const _sem;
  KrCond* const _cond;
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
