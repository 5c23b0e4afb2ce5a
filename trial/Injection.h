// What the fault library, preloaded into the shell, shares with the program that starts the shell: one page of memory,
// in the file named by TEV_INJECTION.
#ifndef TEV_TRIAL_INJECTION_H
#define TEV_TRIAL_INJECTION_H

#include <atomic>
#include <cerrno>
#include <cstdint>

namespace kind {
/// The kinds of calls that can fail. Every file is opened by one of the second kind.
enum : uint32_t { allocation, open, msgget, mkfifo, pthread_create, msgsnd, msgrcv, poll, system, read, write, other };
} // namespace kind

constexpr struct {
  const char* name;
  int error; ///< with which it fails
} callKinds[] = {{"allocation", ENOMEM},     {"open", EMFILE},  {"msgget", ENOSPC}, {"mkfifo", EROFS},
                 {"pthread_create", EAGAIN}, {"msgsnd", EIDRM}, {"msgrcv", EACCES}, {"poll", ENOMEM},
                 {"system", EAGAIN},         {"read", EIO},     {"write", ENOSPC}};

struct Injection {
  // Set before the shell starts.
  uint32_t kind;
  uint32_t first; ///< of the kind, counted from 1, that fails; 0: none does
  uint32_t last;
  // What happened.
  std::atomic<uint32_t> calls[kind::other];
  std::atomic<uint32_t> failed;
};

#endif
