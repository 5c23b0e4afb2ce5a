// What all fuzz targets share. A target defines start() and fuzz().
#ifndef TEV_FUZZ_TARGET_H
#define TEV_FUZZ_TARGET_H

#include <cstdio>
#include <fuzzer/FuzzedDataProvider.h>
#include <string>

/// Ends the program with a report unless the condition holds.
#define FUZZ_CHECK(condition)                                                                                          \
  do {                                                                                                                 \
    if (!(condition)) {                                                                                                \
      (void)fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition);                                    \
      __builtin_trap();                                                                                                \
    }                                                                                                                  \
  } while (false)

class Input : public FuzzedDataProvider {
public:
  using FuzzedDataProvider::FuzzedDataProvider;

  bool once() { return ConsumeBool(); }
  template <class Number>
  Number number(Number first, Number last) {
    return ConsumeIntegralInRange(first, last);
  }
  std::string bytes(size_t longest) { return ConsumeRandomLengthString(longest); }

  /// Calls members of the model until the input ends, and after each check().
  template <class Model, size_t count>
  void play(Model& model, void (Model::*const (&calls)[count])()) {
    while (remaining_bytes() > 0) {
      (model.*calls[number<size_t>(0, count - 1)])();
      model.check();
    }
  }
};

/// Called once, before the first input.
static void start();
/// Tries an input.
static void fuzz(Input& in);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  static const bool started = (start(), true);
  (void)started;
  Input in(bytes, size);
  fuzz(in);
  return 0;
}

#endif
