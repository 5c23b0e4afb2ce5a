#include "bench/Bench.h"

#include "platform/kr.h"
#include "platform/krMem.h"

#include <cstdlib>
#include <mutex>

namespace {

std::recursive_mutex peerMutex;

KrMutex* ourMutex() {
  static KrMutex* const mutex = krMutexCreate();
  return mutex;
}

void mutexOurs(benchmark::State& state) {
  KrMutex* const mutex = ourMutex();
  for (auto _ : state) {
    (void)krMutexLockDebug(mutex, KR_WAIT_FOREVER, __FILE__, __LINE__, __func__, "");
    (void)krMutexUnlock(mutex);
  }
}

void mutexPeer(benchmark::State& state) {
  for (auto _ : state) {
    peerMutex.lock();
    peerMutex.unlock();
  }
}

void heapOurs(benchmark::State& state) {
  for (auto _ : state) {
    void* block = krMalloc(100);
    benchmark::DoNotOptimize(block);
    krFree(block);
  }
}

void heapPeer(benchmark::State& state) {
  for (auto _ : state) {
    peerMutex.lock();
    void* block = malloc(100);
    benchmark::DoNotOptimize(block);
    peerMutex.unlock();
    peerMutex.lock();
    free(block);
    peerMutex.unlock();
  }
}

const bool registered = [] {
  bench::compare("mutex, lock and unlock, free", "std::recursive_mutex", {2.0}, mutexOurs, mutexPeer);
  for (const int threads : {2, 4})
    bench::compare("mutex, lock and unlock, " + std::to_string(threads) + " threads", "std::recursive_mutex",
                   {0, threads}, mutexOurs, mutexPeer);
  bench::compare("heap, allocate and release, pooled", "malloc, free in std::recursive_mutex", {1.5}, heapOurs,
                 heapPeer);
  return true;
}();

} // namespace
