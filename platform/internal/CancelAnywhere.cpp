#include "platform/internal/CancelAnywhere.h"

#include "platform/internal/Uncancelled.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <execinfo.h>
#include <ucontext.h>
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

// Ignored unless somebody asks for it, and nobody here asks for out-of-band data.
constexpr int cancelSignal = SIGURG;

/// On a new thread: lets the cancellations of others reach it.
void acceptCancelling() {
  sigset_t signals;
  // None of these fails for a signal that exists.
  (void)sigemptyset(&signals);
  (void)sigaddset(&signals, cancelSignal);
  (void)pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

void runOpen(void (*work)(const void*), const void* argument) {
  acceptCancelling();
  // These fail only for values that do not exist.
  (void)pthread_setcanceltype(PTHREAD_CANCEL_ASYNCHRONOUS, nullptr);
  (void)pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
  work(argument);
  (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
}

#if KR_UNWINDS_FROM_CALLS_ONLY

#if defined(__EXCEPTIONS)
#error "without exceptions, pthread_cleanup_push makes handlers that need no unwinding of the frame they are in"
#endif

/// Whether a signal found its thread in a system call, at its instruction or behind it.
bool inSystemCall(const ucontext_t& context) {
  const uintptr_t at = context.uc_mcontext.arm_pc;
  constexpr uintptr_t kernelHelpers = 0xFFFF0000;
  if (at >= kernelHelpers) return false;
  const auto isAt = [](uintptr_t address, auto instruction) {
    return memcmp(reinterpret_cast<const void*>(address), &instruction, sizeof instruction) == 0; // NOLINT
  };
  constexpr unsigned thumb = 0x20;
  if ((context.uc_mcontext.arm_cpsr & thumb) != 0) {
    constexpr uint16_t call = 0xDF00;
    return isAt(at, call) || isAt(at - sizeof call, call);
  }
  constexpr uint32_t call = 0xEF000000;
  return isAt(at, call) || isAt(at - sizeof call, call);
}

void jump(void* to) { siglongjmp(*static_cast<kr::WayOut>(to), 1); }

/// Lets a cancelled thread that can end anywhere do so, unless unwinding it from there is as good. Returns if it is on
/// its way out already, by whatever way: the C library decides that in one step. All it gets to unwind is this frame.
[[gnu::noinline]] void leave(const ucontext_t& context) {
  if (kr::wayOut == nullptr || inSystemCall(context)) return;
  pthread_cleanup_push(jump, kr::wayOut);
  // Neither fails for a state that exists.
  (void)pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
  pthread_testcancel();
  (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
  pthread_cleanup_pop(0);
}

void nothing(void*) {}

#else

void leave(const ucontext_t&) {}

#endif

// Runs on the thread that is to end. Owns nothing, because it may be unwound.
void onCancelSignal(int, siginfo_t* info, void* where) {
  if (info->si_code != SI_TKILL || info->si_pid != getpid()) return; // out-of-band data after all
  const int reason = errno;
  const auto& context = *static_cast<const ucontext_t*>(where);
  const kr::CancelSetting found = kr::disableCancellation();
  (void)pthread_cancel(pthread_self()); // this thread exists
  // The handler may not return. A set that the kernel made is valid.
  (void)pthread_sigmask(SIG_SETMASK, &context.uc_sigmask, nullptr);
  if (found.state == PTHREAD_CANCEL_ENABLE && found.type == PTHREAD_CANCEL_ASYNCHRONOUS) leave(context);
  kr::restoreCancellation(found);
  errno = reason;
}

bool watchCancelSignal() {
  struct sigaction action {};
  action.sa_sigaction = onCancelSignal;
  action.sa_flags = SA_SIGINFO | SA_RESTART;
  // Every signal, the C library's own for cancellation as well, for which there is no name.
  memset(&action.sa_mask, 0xFF, sizeof action.sa_mask);
  return sigaction(cancelSignal, &action, nullptr) == 0;
}

} // namespace

namespace kr {

int prepareCancelling() {
  static bool prepared = false;
  if (prepared) return 0;
  if (!loadUnwinder()) return ENOMEM;
  prepared = watchCancelSignal();
  return prepared ? 0 : errno;
}

int cancelThread(KrThreadId tid) {
  const int error = pthread_kill(tid, cancelSignal);
  // Comes second, and the handler of the first keeps it off: it reaches only a thread that keeps the first from itself.
  return error != 0 ? error : pthread_cancel(tid);
}

#if KR_UNWINDS_FROM_CALLS_ONLY

void cancellableAnywhere(void (*work)(const void*), const void* argument) {
  sigjmp_buf beginning;
  volatile bool cancelled = true;
  // Takes with it the handlers that the work pushed, if it does not come back to pop them.
  pthread_cleanup_push(nothing, nullptr);
  if (sigsetjmp(beginning, 0) == 0) {
    (void)setWayOut(&beginning);
    runOpen(work, argument);
    cancelled = false;
  }
  (void)setWayOut(nullptr);
  pthread_cleanup_pop(0);
  if (cancelled) pthread_exit(PTHREAD_CANCELED);
}

#else

void cancellableAnywhere(void (*work)(const void*), const void* argument) { runOpen(work, argument); }

#endif

} // namespace kr
