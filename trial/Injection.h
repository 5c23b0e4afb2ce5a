// What the fault library, preloaded into the shell, shares with the program that starts the shell: one page of memory,
// in the file named by TEV_INJECTION.
#ifndef TEV_TRIAL_INJECTION_H
#define TEV_TRIAL_INJECTION_H

#include <atomic>
#include <cstdint>

/// The kinds of calls that can fail. Every file is opened by one of the second kind.
enum class CallKind : uint32_t {
  allocation,
  open,
  msgget,
  mkfifo,
  pthread_create,
  msgsnd,
  msgrcv,
  poll,
  system,
  read,
  write
};
constexpr uint32_t callKinds = 11;

struct Injection {
  // Set before the shell starts.
  CallKind kind;
  uint32_t first; ///< of the kind, counted from 1, that fails; 0: none does
  uint32_t last;
  // What happened.
  std::atomic<uint32_t> calls[callKinds];
  std::atomic<uint32_t> failed;
};

#endif
