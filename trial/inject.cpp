// Preloaded into the shell: lets calls of one kind fail as the system lets them fail, and counts all. What the shell
// starts is left alone. Sleeping takes no time.
#include "trial/Injection.h"
#include "trial/SystemCalls.h"

#include <cstdlib>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

Injection* injection = nullptr;

/// Counts a call; true, with errno, for one that is to fail.
bool fails(uint32_t kind) {
  if (kind == kind::other) return false;
  const uint32_t number = ++injection->calls[kind];
  if (injection->kind != kind || number < injection->first || number > injection->last) return false;
  ++injection->failed;
  errno = callKinds[kind].error;
  return true;
}

class Failing : public SystemCalls {
#define TEV_FAILING(result, name, parameters, arguments, callKind, failed)                                             \
  result name parameters override { return fails(kind::callKind) ? failed : SystemCalls::name arguments; }
  TEV_SYSTEM_CALLS(TEV_FAILING)
};

__attribute__((constructor)) void start() {
  const char* const path = getenv("TEV_INJECTION");
  const int fd = path != nullptr ? open(path, O_RDWR | O_CLOEXEC) : -1;
  void* const page = fd >= 0 ? mmap(nullptr, sizeof(Injection), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0) : MAP_FAILED;
  if (page == MAP_FAILED) {
    perror("TEV_INJECTION");
    _exit(126);
  }
  (void)close(fd);
  (void)unsetenv("LD_PRELOAD"); // cannot fail for such a name
  injection = static_cast<Injection*>(page);
  static Failing failing;
  SystemCalls::present = &failing;
}

} // namespace

extern "C" {

int select(int, fd_set*, fd_set*, fd_set*, struct timeval*) { return 0; } // the product pauses with it
unsigned int sleep(unsigned int) { return 0; }

} // extern "C"
