// Opening what may have to be waited for.
#ifndef TEV_PLATFORM_OPENWAITING_H
#define TEV_PLATFORM_OPENWAITING_H

#include "platform/internal/Uncancelled.h"

#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>

namespace kr {

/// openat(2) with cancellation disabled. Opens in `cancelState` what it may have to wait for: the other end of a pipe,
/// a device. Nothing else, because a cancellation that comes right behind the system's call loses the descriptor.
inline int openWaiting(int directory, const char* name, int flags, int cancelState) {
  constexpr mode_t mode = 0666;
  flags |= O_CLOEXEC;
  struct stat found {};
  if (fstatat(directory, name, &found, 0) != 0 || !(S_ISFIFO(found.st_mode) || S_ISCHR(found.st_mode)))
    return openat(directory, name, flags, mode);
  if (directory == AT_FDCWD) return cancellable(cancelState, [=] { return open(name, flags, mode); });
  // Unlike open, openat cannot be unwound on 32-bit ARM.
  char path[320];
  (void)snprintf(path, sizeof path, "/proc/self/fd/%d/%s", directory, name);
  return cancellable(cancelState, [&] { return open(path, flags, mode); });
}

} // namespace kr

#endif
