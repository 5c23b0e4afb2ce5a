#include "bench/Bench.h"

#include "platform/krLog.h"

#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>

namespace {

/// Both log "fan 17 set to auto" to a printer that discards it.
void logOurs(benchmark::State& state) {
  KrLogger* const logger = krLogGetLogger("bench.log");
  if (krLogGetPrinterLevel(logger, "null") == -1)
    krLogAddPrinter(logger, "null", [](const char* message) { benchmark::DoNotOptimize(message); });
  for (auto _ : state)
    krInfo(logger, "fan %d set to %s", 17, "auto");
}

void logPeer(benchmark::State& state) {
  static const auto logger = spdlog::create<spdlog::sinks::null_sink_mt>("bench.log");
  for (auto _ : state)
    logger->info("fan {} set to {}", 17, "auto");
}

const bool registered = [] {
  bench::compare("log call, one printer", "spdlog, null sink", {1.25}, logOurs, logPeer);
  return true;
}();

} // namespace
