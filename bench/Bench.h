// The rows of the benchmark table.
//
// A row is registered at the start of the program, from any *_bench.cpp of this folder:
//
//   const bool registered = [] {
//     bench::compare("mutex, free", "std::recursive_mutex", {2.0}, ours, peer);
//     bench::growth("logger lookup", {10, 100, 1000}, lookUp);
//     return true;
//   }();
//
// `ours`, `peer` and `lookUp` are functions of Google Benchmark: they do what has to be done once and then loop over
// their state. All of them are run again and again in random order within one run of the program, with another thread
// in the process, the heap of the library managed, and the median of each is what the table shows.
#ifndef TEV_BENCH_BENCH_H
#define TEV_BENCH_BENCH_H

#include <benchmark/benchmark.h>

#include <functional>
#include <string>
#include <vector>

namespace bench {

/// What is measured: wall time, processor time of the process, or what the function sets with SetIterationTime().
enum class Clock { wall, processor, manual };

struct Measurement {
  double bar = 0; ///< the highest ratio allowed; 0 for none
  int threads = 1;
  Clock clock = Clock::wall;
  int64_t iterations = 0; ///< per measurement; 0 to let the time decide
};

using Function = std::function<void(benchmark::State&)>;

/// A row with a peer: the ratio of both medians, beside its bar.
void compare(const std::string& what, const std::string& beside, const Measurement& measurement, Function ours,
             Function peer);

/// A row without: the time for each size, which the function finds in state.range(0).
void growth(const std::string& what, const std::vector<int64_t>& sizes, const Function& function,
            const Measurement& measurement = {});

} // namespace bench

#endif
