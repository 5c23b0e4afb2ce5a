// Runs the benchmarks and prints their table: tev_bench [--quick]. Options of Google Benchmark work as well. Ends with
// 1 when a ratio is over its bar.
#include "bench/Bench.h"

#include "platform/krMem.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <thread>
#include <unistd.h>

namespace {

struct Row {
  std::string what;
  std::string beside;
  double bar = 0;
  std::vector<int64_t> sizes; // of a growth
};

std::vector<Row>& rows() {
  static std::vector<Row> all;
  return all;
}

/// Times in nanoseconds, by the name of the measured function.
using Times = std::map<std::string, std::vector<double>>;

std::string nameOf(size_t row, const std::string& side) { return std::to_string(row) + ":" + side; }

void add(const std::string& name, const bench::Measurement& measurement, bench::Function function, int64_t size = 0) {
  auto* const entry = benchmark::RegisterBenchmark(name.c_str(), std::move(function));
  entry->Arg(size)->Threads(measurement.threads);
  switch (measurement.clock) {
  case bench::Clock::wall:
    entry->UseRealTime();
    break;
  case bench::Clock::processor:
    entry->MeasureProcessCPUTime();
    break;
  case bench::Clock::manual:
    entry->UseManualTime();
    break;
  }
  if (measurement.iterations != 0) entry->Iterations(measurement.iterations);
}

class Collector : public benchmark::BenchmarkReporter {
public:
  bool ReportContext(const Context&) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.error_occurred) failed = run.benchmark_name() + ": " + run.error_message;
      if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
      // The name given above, and the processor time where it was asked for.
      const std::string& name = run.run_name.function_name;
      const bool processor = run.run_name.time_type.find("process_time") == 0;
      times[name].push_back(processor ? run.GetAdjustedCPUTime() : run.GetAdjustedRealTime());
    }
  }
  Times times;
  std::string failed;
};

/// 0 when nothing was measured, as after a --benchmark_filter.
double median(const Times& times, const std::string& name) {
  const auto found = times.find(name);
  if (found == times.end()) return 0;
  std::vector<double> sorted = found->second;
  std::sort(sorted.begin(), sorted.end());
  const size_t half = sorted.size() / 2;
  return sorted.size() % 2 != 0 ? sorted[half] : (sorted[half - 1] + sorted[half]) / 2;
}

std::string text(double nanoseconds) {
  const char* unit = "ns";
  for (const char* larger : {"us", "ms", "s"}) {
    if (nanoseconds < 10'000) break;
    nanoseconds /= 1000;
    unit = larger;
  }
  char result[32];
  (void)snprintf(result, sizeof result, "%.*f %s", nanoseconds < 100 ? 1 : 0, nanoseconds, unit);
  return result;
}

/// Prints the table; false when a ratio is over its bar.
bool print(const Times& times) {
  bool ok = true;
  printf("%-42s %-34s %9s %9s %6s %5s\n", "what", "beside", "ours", "peer", "ratio", "bar");
  for (size_t i = 0; i < rows().size(); ++i) {
    const Row& row = rows()[i];
    if (!row.sizes.empty()) continue;
    const double ours = median(times, nameOf(i, "ours")), peer = median(times, nameOf(i, "peer"));
    if (ours == 0 || peer == 0) continue;
    const bool over = row.bar != 0 && ours > row.bar * peer;
    char bar[8] = "-";
    if (row.bar != 0) (void)snprintf(bar, sizeof bar, "%.2f", row.bar);
    printf("%-42s %-34s %9s %9s %6.2f %5s %s\n", row.what.c_str(), row.beside.c_str(), text(ours).c_str(),
           text(peer).c_str(), ours / peer, bar,
           row.bar == 0 ? ""
           : over       ? "over"
                        : "ok");
    ok = ok && !over;
  }
  for (size_t i = 0; i < rows().size(); ++i) {
    const Row& row = rows()[i];
    if (row.sizes.empty() || median(times, nameOf(i, std::to_string(row.sizes[0]))) == 0) continue;
    printf("%-42s", row.what.c_str());
    for (const int64_t size : row.sizes)
      printf(" %lld: %s ", static_cast<long long>(size), text(median(times, nameOf(i, std::to_string(size)))).c_str());
    printf("\n");
  }
  return ok;
}

} // namespace

namespace bench {

void compare(const std::string& what, const std::string& beside, const Measurement& measurement, Function ours,
             Function peer) {
  rows().push_back({what, beside, measurement.bar, {}});
  const size_t row = rows().size() - 1;
  add(nameOf(row, "ours"), measurement, std::move(ours));
  add(nameOf(row, "peer"), measurement, std::move(peer));
}

void growth(const std::string& what, const std::vector<int64_t>& sizes, const Function& function,
            const Measurement& measurement) {
  rows().push_back({what, "", 0, sizes});
  for (const int64_t size : sizes)
    add(nameOf(rows().size() - 1, std::to_string(size)), measurement, function, size);
}

} // namespace bench

int main(int argc, char** argv) {
  const bool quick = argc > 1 && strcmp(argv[1], "--quick") == 0;
  std::vector<char*> arguments(argv, argv + argc);
  if (quick) arguments.erase(arguments.begin() + 1);
  char interleaved[] = "--benchmark_enable_random_interleaving=true";
  char repetitions[] = "--benchmark_repetitions=41", time[] = "--benchmark_min_time=0.05";
  char fewRepetitions[] = "--benchmark_repetitions=9", shortTime[] = "--benchmark_min_time=0.03";
  // In front of the caller's own, so that those win.
  arguments.insert(arguments.begin() + 1,
                   {interleaved, quick ? fewRepetitions : repetitions, quick ? shortTime : time});
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 2;

  krMemInit(1, 0);
  // Locks and allocators have a cheaper way in processes of one thread, which this system's are not.
  std::thread([] {
    for (;;)
      pause();
  }).detach();

  Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);
  const bool ok = print(collector.times);
  if (!collector.failed.empty()) fprintf(stderr, "%s\n", collector.failed.c_str());
  return ok && collector.failed.empty() ? 0 : 1;
}
