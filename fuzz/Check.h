// How a target says that the product did something wrong.
#ifndef TEV_FUZZ_CHECK_H
#define TEV_FUZZ_CHECK_H

#include <cstdio>

#define FUZZ_CHECK(condition)                                                                                          \
  do {                                                                                                                 \
    if (!(condition)) {                                                                                                \
      (void)fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition);                                    \
      __builtin_trap();                                                                                                \
    }                                                                                                                  \
  } while (false)

#endif
