#include "platform/krThread.h"

#include "platform/internal/Diagnostic.h"
#include "platform/internal/Failure.h"
#include "platform/internal/LiveThreads.h"
#include "platform/internal/Self.h"
#include "platform/internal/Uncancelled.h"
#include "platform/krError.h"
#include "platform/krMem.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

struct StartBlock {
  KrThreadEntry entry;
  intptr_t arguments[10];
};
static_assert(sizeof(StartBlock) == 11 * sizeof(intptr_t));

/// How the two kinds of spawn print a thread id.
enum class IdStyle { asSigned, asUnsigned };

struct IdText {
  char text[12];
};

IdText printed(KrThreadId tid, IdStyle style) {
  IdText id{};
  if (style == IdStyle::asSigned)
    (void)snprintf(id.text, sizeof id.text, "%d", kr::signedId(tid));
  else
    (void)snprintf(id.text, sizeof id.text, "%u", kr::shortId(tid));
  return id;
}

int defaultStackSize() {
  // Nothing in this system writes to the environment.
  const char* const text = getenv("KR_DEFAULT_STACKSIZE"); // NOLINT(concurrency-mt-unsafe)
  if (text == nullptr) return 65536;
  return static_cast<int>(std::clamp(strtol(text, nullptr, 10), long{INT_MIN}, long{INT_MAX}));
}

int highestPriority() { return sched_get_priority_max(SCHED_FIFO); }

/// Makes a call about a thread that exists; ESRCH for any other. The thread's own lock is held for moments only.
template <class Call>
int about(KrThreadId tid, Call call) {
  const kr::ThreadsHeld held;
  return held.exist(tid) ? call() : ESRCH;
}

/// Tells of a thread in the thread log and on standard error.
void logThread(const kr::Line& line, int cancelState) {
  char path[64];
  (void)snprintf(path, sizeof path, "%s/threads.log", kr::logDirectory);
  kr::writeFile(path, "a+e", line);
  kr::say(cancelState, stderr, "%s\n", line.text);
}

void tellOfFailure(const char* name, int cancelState) {
  char buffer[128];
  kr::say(cancelState, stderr, "krThreadSpawn Failed to spawn [%s], errno = [0x%08x : %s]\n", name,
          static_cast<unsigned>(errno), strerror_r(errno, buffer, sizeof buffer));
}

/// krThreadSetPriority with cancellation disabled.
int setPriority(KrThreadId tid, int priority, int cancelState) {
  if (priority == KR_KEEP_PRIORITY) return 0;
  if (priority < 0 || priority > KR_LOWEST_PRIORITY) return kr::failWith(KR_ERR_PRIORITY);
  if (!kr::isThread(tid)) return kr::failWith(ESRCH);
  const int id = kr::signedId(tid);
  if (geteuid() != 0) {
    kr::say(cancelState, stderr, "krThreadSetPriority: ERROR: tid[%d]; NOT ROOT: geteuid()=%d\n", id,
            static_cast<int>(geteuid()));
    return kr::failWith(EPERM);
  }
  const int highest = highestPriority();
  sched_param parameters{};
  parameters.sched_priority = std::max(1, highest - priority * highest / 256);
  const int error = about(tid, [&] { return pthread_setschedparam(tid, SCHED_FIFO, &parameters); });
  if (error != 0) {
    kr::say(cancelState, stderr,
            "krThreadSetPriority: ERROR: pthread_setschedparam (pri=%d, policy=%d) failed for tid[%d]\n",
            parameters.sched_priority, SCHED_FIFO, id);
    return kr::failWith(error);
  }
  kr::say(cancelState, stderr, "krThreadSetPriority: Set priority for tid[%d] to [%d] (kr priority=%d), policy=%d\n",
          id, parameters.sched_priority, priority, SCHED_FIFO);
  return 0;
}

void setAndTellPriority(const char* name, KrThreadId tid, int priority, IdStyle style, int cancelState) {
  // A thread without its priority runs with the one it has, and the call has said why.
  (void)setPriority(tid, priority, cancelState);
  int policy = 0;
  sched_param parameters{};
  if (pthread_getschedparam(tid, &policy, &parameters) != 0) return;
  const IdText id = printed(tid, style);
  kr::say(cancelState, stderr, "Thread [%s] (tid = %s); Linux Priority = %d; spawned by tid = %s\n", name, id.text,
          parameters.sched_priority, printed(kr::self(), style).text);
  logThread(kr::stampedLine("krThreadSpawn: Spawned Thread [%s] (tid = %s); Linux Priority = %d\n", name, id.text,
                            parameters.sched_priority),
            cancelState);
}

/// The common part of the spawns. `reportedStack` is null for the one that has no line on standard output.
/// `*published`, if it is not null, gets the id before anything is printed. Runs with cancellation disabled and prints
/// in `cancelState`; for a thread that is cancelled there, the new thread is one that it has started.
KrThreadId spawn(const char* name, int priority, const int* reportedStack, const pthread_attr_t* attributes,
                 const StartBlock& start, IdStyle style, std::atomic<KrThreadId>* published, int cancelState) {
  auto* const block = static_cast<StartBlock*>(krMalloc(sizeof(StartBlock)));
  if (block == nullptr) {
    if (published != nullptr) *published = KR_NO_THREAD;
    tellOfFailure(name, cancelState);
    return KR_NO_THREAD;
  }
  *block = start;
  KrThreadId tid = KR_NO_THREAD;
  const int error = kr::createThread(&tid, attributes, block, start.arguments[0]);
  if (error != 0) {
    tid = KR_NO_THREAD;
    krFree(block);
  }
  if (published != nullptr) *published = tid;
  kr::OnCancel onCancel{[=] {
    if (error == 0) kr::letGo(tid);
  }};
  if (reportedStack != nullptr)
    kr::say(cancelState, stdout, "krThreadSpawn %s ss:%i p:%i tid:%ld\n", name, *reportedStack, priority,
            static_cast<long>(tid));
  errno = error;
  if (error != 0)
    tellOfFailure(name, cancelState);
  else
    setAndTellPriority(name, tid, priority, style, cancelState);
  return tid;
}

/// Hands `use` thread attributes with that detached state and, unless 0, stack size.
template <class Use>
KrThreadId withAttributes(int detachState, int stackSize, Use use) {
  pthread_attr_t attributes;
  // Neither fails on Linux for a state that exists.
  (void)pthread_attr_init(&attributes);
  const kr::OnCancel inAnyCase{[&attributes] { (void)pthread_attr_destroy(&attributes); }};
  (void)pthread_attr_setdetachstate(&attributes, detachState);
  // A size below the system's least leaves the default.
  if (stackSize != 0) (void)pthread_attr_setstacksize(&attributes, static_cast<size_t>(stackSize));
  return use(&attributes);
}

/// What a new thread does before its entry. False when it must end without.
[[gnu::noinline]] bool begin(void* startBlock, StartBlock* start) {
  const auto lwp = static_cast<int>(syscall(SYS_gettid));
  *start = *static_cast<const StartBlock*>(startBlock);
  krFree(startBlock);
  if (!kr::stayTillTheEnd()) return false;
  kr::Line line{};
  (void)snprintf(line.text, sizeof line.text, "New thread, tid = %d / PID = %ld / LWP id = %d\n",
                 kr::signedId(kr::self()), static_cast<long>(getpid()), lwp);
  logThread(line, PTHREAD_CANCEL_ENABLE); // in which a thread begins
  return true;
}

} // namespace

namespace kr {

KrThreadId spawnDetached(const char* name, int priority, int stackSize, KrThreadEntry entry,
                         const intptr_t (&arguments)[10], std::atomic<KrThreadId>* published, int cancelState) {
  StartBlock start{entry, {}};
  std::copy(std::begin(arguments), std::end(arguments), start.arguments);
  const int stack = stackSize != 0 ? stackSize : defaultStackSize();
  return withAttributes(PTHREAD_CREATE_DETACHED, 0, [&](const pthread_attr_t* attributes) {
    return spawn(orEmpty(name), priority, &stack, attributes, start, IdStyle::asSigned, published, cancelState);
  });
}

} // namespace kr

KrThreadId krThreadSpawn(const char* name, int priority, int stackSize, KrThreadEntry entry, intptr_t a1, intptr_t a2,
                         intptr_t a3, intptr_t a4, intptr_t a5, intptr_t a6, intptr_t a7, intptr_t a8, intptr_t a9,
                         intptr_t a10) {
  return kr::uncancelled([=](int cancelState) {
    return kr::spawnDetached(name, priority, stackSize, entry, {a1, a2, a3, a4, a5, a6, a7, a8, a9, a10}, nullptr,
                             cancelState);
  });
}

KrThreadId krThreadSpawn_with_attr(const char* name, int priority, const pthread_attr_t* attributes,
                                   KrThreadEntry entry, intptr_t a1, intptr_t a2, intptr_t a3, intptr_t a4, intptr_t a5,
                                   intptr_t a6, intptr_t a7, intptr_t a8, intptr_t a9, intptr_t a10) {
  return kr::uncancelled([=](int cancelState) {
    return spawn(kr::orEmpty(name), priority, nullptr, attributes, {entry, {a1, a2, a3, a4, a5, a6, a7, a8, a9, a10}},
                 IdStyle::asUnsigned, nullptr, cancelState);
  });
}

KrThreadId krThreadSpawn_joinable(const char* name, int priority, int stackSize, KrThreadEntry entry, intptr_t a1,
                                  intptr_t a2, intptr_t a3, intptr_t a4, intptr_t a5, intptr_t a6, intptr_t a7,
                                  intptr_t a8, intptr_t a9, intptr_t a10) {
  return kr::uncancelled([=](int cancelState) {
    const int stack = stackSize != 0 ? stackSize : defaultStackSize();
    const KrThreadId tid = withAttributes(PTHREAD_CREATE_JOINABLE, stack, [&](const pthread_attr_t* attributes) {
      return spawn(kr::orEmpty(name), priority, nullptr, attributes, {entry, {a1, a2, a3, a4, a5, a6, a7, a8, a9, a10}},
                   IdStyle::asUnsigned, nullptr, cancelState);
    });
    kr::say(cancelState, stdout, "krThreadSpawn %s ss:%i p:%i tid:%lu\n", kr::orEmpty(name), stack, priority, tid);
    return tid;
  });
}

int krThreadSetPriority(KrThreadId tid, int priority) {
  return kr::uncancelled([=](int cancelState) { return setPriority(tid, priority, cancelState); });
}

int krThreadGetPriority(KrThreadId tid, int* priority) {
  if (!kr::isThread(tid)) return kr::failWith(ESRCH);
  return kr::uncancelled([=] {
    int policy = 0;
    sched_param parameters{};
    const int error = about(tid, [&] { return pthread_getschedparam(tid, &policy, &parameters); });
    if (error != 0) return kr::failWith(error);
    const int highest = highestPriority();
    *priority = (highest - parameters.sched_priority) * 256 / highest;
    return 0;
  });
}

int krThreadDelete(KrThreadId tid) { return kr::isThread(tid) ? kr::cancel(tid) : ESRCH; }

int krThreadJoin(KrThreadId tid, void** result) {
  if (!kr::isThread(tid)) return ESRCH;
  return kr::uncancelled([=](int cancelState) { return kr::join(tid, result, cancelState); });
}

int krThreadResume(KrThreadId) { return kr::failWith(ENOSYS); }

int krThreadStackAvailable(KrThreadId) { return INT32_MAX; }

void* linuxEntry(void* startBlock) {
  // A new thread starts with cancellation enabled, but deferred: it cannot be cancelled before this.
  (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
  StartBlock start;
  if (begin(startBlock, &start)) {
    kr::asynchronousThread = true;
    // This frame, too, owns nothing with a destructor.
    kr::cancellableAnywhere(
        [](const void* block) {
          const auto& [entry, a] = *static_cast<const StartBlock*>(block);
          (void)entry(a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7], a[8], a[9]);
        },
        &start);
  }
  pthread_exit(nullptr);
}
