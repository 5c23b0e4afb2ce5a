#include "platform/internal/CancelAnywhere.h"

#include "platform/internal/Uncancelled.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <execinfo.h>
#include <sys/syscall.h>
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

// Ignored by default; the appliance uses no out-of-band data.
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

/// Ends a cancelled thread from where it is, unless it is ending already, by any way: the C library
/// decides that in one step. All it gets to unwind is this frame.
[[gnu::noinline]] void leave() {
  pthread_cleanup_push(jump, kr::wayOut);
  // Neither fails for a state that exists.
  (void)pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
  pthread_testcancel();
  (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
  pthread_cleanup_pop(0);
}

void nothing(void*) {}

// By which the signal comes again. Made and used inside of cancellation points only, so the allocator is free.
thread_local bool haveTimer = false;
thread_local timer_t timer;

/// False if there was none.
bool dropTimer() {
  if (!haveTimer) return false;
  haveTimer = false;
  (void)timer_delete(timer); // it exists
  return true;
}

void comeAgain() {
  sigevent event{};
  event.sigev_notify = SIGEV_THREAD_ID;
  event.sigev_signo = cancelSignal;
  event._sigev_un._tid = static_cast<pid_t>(syscall(SYS_gettid));
  if (timer_create(CLOCK_MONOTONIC, &event, &timer) != 0) return; // then the wait to come is not cancelled
  haveTimer = true;
  itimerspec soon{};
  soon.it_value.tv_nsec = 1'000'000;
  (void)timer_settime(timer, 0, &soon, nullptr); // succeeds for a valid time
}

bool isOurs(const siginfo_t& info) {
  return (info.si_code == SI_TKILL && info.si_pid == getpid()) || (info.si_code == SI_TIMER && haveTimer);
}

/// Does with a thread that is cancelled what it is open to, and returns if that is nothing yet.
void cancelFrom(const ucontext_t& context, kr::CancelSetting* found) {
  const bool again = dropTimer();
  if (found->state != PTHREAD_CANCEL_ENABLE) return;
  if (found->type != PTHREAD_CANCEL_ASYNCHRONOUS && !again) return;
  if (inSystemCall(context)) return kr::restoreCancellation({PTHREAD_CANCEL_ASYNCHRONOUS, PTHREAD_CANCEL_ENABLE});
  if (kr::wayOut != nullptr) return leave();
  // On the way into a wait or out of it. The C library puts the type back to deferred behind the wait in any case.
  found->type = PTHREAD_CANCEL_DEFERRED;
  comeAgain();
}

#else

bool dropTimer() { return false; }

bool isOurs(const siginfo_t& info) { return info.si_code == SI_TKILL && info.si_pid == getpid(); }

void cancelFrom(const ucontext_t&, kr::CancelSetting*) {}

#endif

// Runs on the thread that is to end. Owns nothing, because it may be unwound.
void onCancelSignal(int, siginfo_t* info, void* where) {
  if (!isOurs(*info)) return; // out-of-band data after all
  const int reason = errno;
  const auto& context = *static_cast<const ucontext_t*>(where);
  kr::CancelSetting found = kr::disableCancellation();
  (void)pthread_cancel(pthread_self()); // this thread exists
  // The handler may not return. A set that the kernel made is valid.
  (void)pthread_sigmask(SIG_SETMASK, &context.uc_sigmask, nullptr);
  cancelFrom(context, &found);
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

void endCancelling() { (void)dropTimer(); }

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
