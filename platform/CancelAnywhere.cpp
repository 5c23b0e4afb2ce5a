#include "platform/CancelAnywhere.h"

#include "platform/Uncancelled.h"

#include <cerrno>
#include <csignal>
#include <execinfo.h>
#include <unistd.h>

// The linker's name for the dynamic section; null where a program has none.
extern "C" [[gnu::weak, gnu::visibility("hidden")]] const char _DYNAMIC[]; // NOLINT(bugprone-reserved-identifier)

namespace {

/// Loads what unwinds a thread. A signal handler could not do that, and the C library ends the process when a thread
/// ends and there is no memory for it. A program without dynamic linking has it inside; its first look around there
/// would cost more than all the rest of a start.
bool loadUnwinder() {
  if (_DYNAMIC == nullptr) return true;
  void* caller = nullptr;
  return backtrace(&caller, 1) > 0;
}

#if KR_UNWINDS_FROM_CALLS_ONLY

// Ignored unless somebody asks for it, and nobody here asks for out-of-band data.
constexpr int cancelSignal = SIGURG;

// Runs on the thread that is to end. Owns nothing, because it may be unwound.
void onCancelSignal(int, siginfo_t* info, void*) {
  if (info->si_code != SI_TKILL || info->si_pid != getpid()) return; // out-of-band data after all
  const int reason = errno;
  const kr::CancelSetting found = kr::disableCancellation();
  if (kr::wayOut != nullptr && found.state == PTHREAD_CANCEL_ENABLE && found.type == PTHREAD_CANCEL_ASYNCHRONOUS)
    siglongjmp(*kr::wayOut, 1);
  kr::restoreCancellation(found);
  (void)pthread_cancel(pthread_self()); // this thread exists
  errno = reason;
}

bool watchCancelSignal() {
  struct sigaction action {};
  action.sa_sigaction = onCancelSignal;
  action.sa_flags = SA_SIGINFO | SA_RESTART;
  return sigaction(cancelSignal, &action, nullptr) == 0;
}

#else

bool watchCancelSignal() { return true; }

#endif

} // namespace

namespace kr {

int prepareCancelling() {
  static bool prepared = false;
  if (prepared) return 0;
  if (!loadUnwinder()) return ENOMEM;
  prepared = watchCancelSignal();
  return prepared ? 0 : errno;
}

#if KR_UNWINDS_FROM_CALLS_ONLY

int cancelThread(KrThreadId tid) { return pthread_kill(tid, cancelSignal); }

void acceptCancelling() {
  sigset_t signals;
  // None of these fails for a signal that exists.
  (void)sigemptyset(&signals);
  (void)sigaddset(&signals, cancelSignal);
  (void)pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

#endif

} // namespace kr
