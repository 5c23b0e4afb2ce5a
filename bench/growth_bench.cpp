#include "bench/Bench.h"

#include "platform/CKrProperty.h"
#include "platform/krLog.h"

namespace {

/// Enough names for each size, so that what is looked up is not always the same.
std::vector<std::string> names(const std::string& prefix, int64_t count) {
  std::vector<std::string> all;
  for (int64_t i = 0; i < count; ++i)
    all.push_back(prefix + std::to_string(i));
  return all;
}

/// Calls `use` with one name after the other, in an order that jumps.
template <class Use>
void forNames(benchmark::State& state, const std::vector<std::string>& all, Use use) {
  size_t i = 0;
  for (auto _ : state) {
    use(all[i].c_str());
    i = (i + 7919) % all.size(); // a prime, and no divisor of the sizes
  }
}

void lookUp(benchmark::State& state) {
  krLogReset();
  const auto all = names("bench.n", state.range(0));
  for (const std::string& name : all)
    (void)krLogGetLogger(name.c_str());
  forNames(state, all, [](const char* name) { benchmark::DoNotOptimize(krLogGetLogger(name)); });
}

/// A store with as many settings, kept nowhere.
CKrProperty* settings(const std::vector<std::string>& all) {
  static const std::vector<std::string>* wanted;
  wanted = &all;
  const auto load = [](char*, KrPropMap& map) {
    for (const std::string& name : *wanted)
      map[name] = "0";
    return true;
  };
  krLogSetLevel(krLogGetLogger("comps.kr"), KR_LOG_OFF); // of the loading
  return CKrProperty::getInstance(("bench." + std::to_string(all.size())).c_str(), load,
                                  [](char*, KrPropMap&) { return true; });
}

void getProperty(benchmark::State& state) {
  const auto all = names("n", state.range(0));
  CKrProperty* const store = settings(all);
  forNames(state, all, [store](const char* name) { benchmark::DoNotOptimize(store->getProperty(name, -1)); });
}

void setProperty(benchmark::State& state) {
  const auto all = names("n", state.range(0));
  CKrProperty* const store = settings(all);
  int32_t value = 0;
  forNames(state, all, [&](const char* name) { store->setProperty(name, ++value); });
}

const bool registered = [] {
  bench::growth("logger lookup", {10, 100, 1000, 10000}, lookUp);
  bench::growth("property get", {10, 100, 1000, 10000, 100000}, getProperty);
  bench::growth("property set", {10, 100, 1000, 10000, 100000}, setProperty);
  return true;
}();

} // namespace
