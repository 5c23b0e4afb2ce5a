// Sequences of lock calls by three threads, one call at a time, beside a model that says what each call must answer.
// Calls that would wait for ever are left out.
#include "fuzz/StandIns.h"

#include "platform/krLock.h"

#include <climits>
#include <functional>
#include <numeric>
#include <semaphore.h>
#include <thread>

namespace {

constexpr int threads = 3;
constexpr int none = -1;

/// A thread that makes calls for others.
class Caller {
public:
  Caller() {
    FUZZ_CHECK(sem_init(&_begin, 0, 0) == 0 && sem_init(&_end, 0, 0) == 0);
    std::thread([this] { serve(); }).detach(); // ends with the process
  }

  /// Returns 0, or the errno of a failure; a count as it is.
  int make(const std::function<int()>& call) {
    _call = call;
    FUZZ_CHECK(sem_post(&_begin) == 0 && TEMP_FAILURE_RETRY(sem_wait(&_end)) == 0);
    return _answer;
  }

private:
  [[noreturn]] void serve() {
    for (;;) {
      FUZZ_CHECK(TEMP_FAILURE_RETRY(sem_wait(&_begin)) == 0); // the fuzzer's alarm clock interrupts it
      errno = 0;
      _answer = _call();
      if (_answer < 0) _answer = -errno;
      FUZZ_CHECK(sem_post(&_end) == 0);
    }
  }

  sem_t _begin, _end;
  std::function<int()> _call;
  int _answer = 0;
};

class Locks {
public:
  explicit Locks(Input& in)
      : _in(in), _value(in.once() ? in.number(0U, 3U) : unsigned{INT_MAX} - 1), _sem(krSemCreate(_value)) {
    FUZZ_CHECK(_mutex != nullptr && _lock != nullptr && _sem != nullptr && _cond != nullptr);
  }

  /// All threads give back what they have.
  ~Locks() {
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

  void check() { _self = _in.number(0, threads - 1); }

  void lockMutex() {
    const bool taken = _owner != none && _owner != _self;
    const int time = timeout(taken);
    expect(!taken               ? 0
           : time == KR_NO_WAIT ? EBUSY
                                : KR_ERR_TIMEOUT,
           [=] { return krMutexLockDebug(_mutex, time, "", 0, "", ""); });
    if (!taken) obtainMutex();
  }

  void unlockMutex() {
    const bool mine = _lastOwner == _self;
    expect(mine ? 0 : EPERM, [=] { return krMutexUnlock(_mutex); });
    if (mine) releaseMutex();
  }

  void readLock() {
    const bool writes = _writer == _self;
    if (_reads[_self] == 0 && !writes && _writer != none) return;
    const bool refused = _reads[_self] == 0 && writes;
    expect(refused ? KR_ERR_INVALID : 0, [=] { return krReadLockDebug(_lock, "", 0, ""); });
    if (!refused) ++_reads[_self];
  }

  void readUnlock() {
    const bool reads = _reads[_self] > 0;
    expect(reads ? 0 : EPERM, [=] { return krReadUnlock(_lock); });
    if (reads) --_reads[_self];
  }

  void writeLock() {
    const bool othersRead = std::accumulate(_reads, _reads + threads, 0) > _reads[_self];
    if (_writer != _self && (_writer != none || othersRead)) return;
    expect(0, [=] { return krWriteLockDebug(_lock, "", 0, ""); });
    _writer = _self;
    ++_writes;
  }

  void writeUnlock() {
    const bool mine = _writer == _self;
    expect(mine ? 0 : EPERM, [=] { return krWriteUnlock(_lock); });
    if (mine && --_writes == 0) _writer = none;
  }

  void take() {
    const int time = timeout(_value == 0);
    expect(_value > 0 ? 0 : time == KR_NO_WAIT ? EAGAIN : KR_ERR_TIMEOUT, [=] { return krSemTake(_sem, time); });
    if (_value > 0) --_value;
    FUZZ_CHECK(krSemGetValue(_sem) == static_cast<int>(_value));
  }

  void give() {
    const bool full = _value == unsigned{INT_MAX};
    expect(full ? EOVERFLOW : 0, [=] { return krSemGive(_sem); });
    if (!full) ++_value;
    krSemFlush(_sem);
  }

  void wait() {
    const bool mine = _lastOwner == _self;
    expect(mine ? 0 : EPERM, [=] { return krCondWait(_cond, _mutex); });
    if (!mine) return;
    releaseMutex();
    obtainMutex();
  }

  void signal() {
    expect(0, [=] { return krCondSignal(_cond); });
    expect(ENOSYS, [=] { return krCondTimedWait(_cond, _mutex, 1); });
  }

private:
  void expect(int reason, const std::function<int()>& call) const {
    static auto* const callers = new Caller[threads]; // never destroyed: their threads wait in them
    FUZZ_CHECK(callers[_self].make(call) == -reason);
  }

  /// A timeout that is over soon; for a call that would not wait also none.
  int timeout(bool waits) {
    constexpr int few[] = {KR_NO_WAIT, -2, INT_MIN, 1};
    const int picked = _in.PickValueInArray(few);
    if (picked == 1 && waits && ++_waited > 2) return KR_NO_WAIT; // a millisecond each
    return !waits && _in.once() ? KR_WAIT_FOREVER : picked;
  }

  void obtainMutex() {
    _owner = _lastOwner = _self;
    ++_depth;
  }

  void releaseMutex() {
    if (_depth > 0 && --_depth == 0) _owner = none;
  }

  Input& _in;
  int _self = 0;
  int _waited = 0;
  int _owner = none, _lastOwner = none, _depth = 0;
  int _writer = none, _writes = 0, _reads[threads] = {};
  unsigned _value;
  KrMutex* const _mutex = krMutexCreate();
  KrReadWrite* const _lock = krReadWriteCreate();
  KrSem* const _sem;
  KrCond* const _cond = krCondCreate();
};

} // namespace

static void start() {}

static void fuzz(Input& in) {
  StandIns quick; // a condition's pause takes no time
  Locks locks(in);
  in.play(locks, {&Locks::lockMutex, &Locks::unlockMutex, &Locks::readLock, &Locks::readUnlock, &Locks::writeLock,
                  &Locks::writeUnlock, &Locks::take, &Locks::give, &Locks::wait, &Locks::signal});
}
