#include "trial/SystemCalls.h"

#include <dlfcn.h>

// The functions have the linker's names. Where they are wrapped, the product's calls go to __wrap_ and the system's
// functions are called __real_. Preloaded, they have the C library's names.
#ifdef TEV_PRELOADED
#define TEV_ENTRY(name) asm(#name)
#define TEV_SYSTEMS(result, name, parameters)                                                                          \
  static auto* const name##Systems = reinterpret_cast<result(*) parameters>(dlsym(RTLD_NEXT, #name));
#else
#define TEV_ENTRY(name) asm("__wrap_" #name)
#define TEV_SYSTEMS(result, name, parameters) result name##Systems parameters asm("__real_" #name);
#endif

#define TEV_CALL(result, name, parameters, arguments, kind, failed)                                                    \
  result SystemCalls::name parameters {                                                                                \
    TEV_SYSTEMS(result, name, parameters)                                                                              \
    return name##Systems arguments;                                                                                    \
  }                                                                                                                    \
  TEV_ALIAS(name, result, name, parameters, arguments)
#define TEV_ALIAS(alias, result, name, parameters, arguments)                                                          \
  result alias##Entry parameters TEV_ENTRY(alias);                                                                     \
  result alias##Entry parameters { return SystemCalls::present->name arguments; }

namespace {
SystemCalls systemsOwn;
}
SystemCalls* SystemCalls::present = &systemsOwn;

// open64() has its third argument only when it makes a file; without, any number is passed on.
TEV_SYSTEM_CALLS(TEV_CALL)

#ifdef TEV_PRELOADED
// What programs call that are fortified, or have narrow files.
TEV_ALIAS(fopen, FILE*, fopen64, (const char* path, const char* mode), (path, mode))
TEV_ALIAS(open, int, open64, (const char* path, int flags, mode_t mode), (path, flags, mode))
TEV_ALIAS(__open_2, int, open64, (const char* path, int flags, mode_t mode), (path, flags, mode))
TEV_ALIAS(__open64_2, int, open64, (const char* path, int flags, mode_t mode), (path, flags, mode))
TEV_ALIAS(__poll_chk, int, poll, (pollfd * waits, nfds_t count, int timeout), (waits, count, timeout))
TEV_ALIAS(__read_chk, ssize_t, read, (int fd, void* bytes, size_t size), (fd, bytes, size))
#endif
