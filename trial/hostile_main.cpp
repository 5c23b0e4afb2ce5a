// Starts services and shell on a machine with another user, who makes obstacles for them: in /tmp and under the key of
// the shell's queue, before the start and during the session. Most shells are root's, and the other user an ordinary
// one; some are an ordinary user's, with what root may have left there.
//
// To be run on the stand-in appliance by root: tev-hostile SHELL SERVICE ROUNDS SEED
#include "messaging/Protocol.h"
#include "sim/BoardSocket.h"
#include "sim/ServiceProcesses.h"
#include "sim/SystemError.h"
#include "trial/Queues.h"
#include "trial/Shell.h"
#include "trial/Verdict.h"

#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <functional>
#include <grp.h>
#include <map>
#include <new>
#include <random>
#include <sched.h>
#include <set>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>

namespace trial {

namespace {

using sim::check;

constexpr uid_t ordinary = 65534;
constexpr unsigned limit = 30;          // seconds, from the start of the services to the end of the shell
constexpr off_t traceMax = 1024 * 1024; // bytes
constexpr char victim[] = "/tmp/victim", absent[] = "/tmp/absent", trace[] = "/tmp/cli.log";

constexpr unsigned fifoWithReader = 0;
const std::pair<const char*, int (*)(const char* path)> objects[] = {
    {"fifo with reader", [](const char* path) { return mkfifo(path, 0666); }},
    {"fifo", [](const char* path) { return mkfifo(path, 0666); }},
    {"file", [](const char* path) { return mknod(path, S_IFREG | 0666, 0); }},
    {"socket", [](const char* path) { return mknod(path, S_IFSOCK | 0666, 0); }},
    {"directory", [](const char* path) { return mkdir(path, 0777); }},
    {"link", [](const char* path) { return symlink(victim, path); }},
    {"link to nothing", [](const char* path) { return symlink(absent, path); }},
    {"hard link", [](const char* path) { return link(victim, path); }},
};

// What may be so in a round, and in one of how many it is.
constexpr char userShell[] = "shell of a user", openQueue[] = "queue open to all",
               closedQueue[] = "queue without permissions", races[] = "links at all times", floods[] = "floods",
               exits[] = "ends by exit";
constexpr std::pair<const char*, unsigned> circumstances[] = {{userShell, 4}, {openQueue, 5}, {closedQueue, 5},
                                                              {races, 4},     {floods, 6},    {exits, 4}};

struct Round {
  int guess;                               // of the id of the shell's queue
  std::set<std::string> names;             // of its circumstances and objects; empty: nothing is in the way
  std::map<std::string, unsigned> planted; // objects by path

  bool has(const char* name) const { return names.count(name) > 0; }
  uid_t shell() const { return has(userShell) ? ordinary : 0; }
  uid_t other() const { return has(userShell) ? 0 : ordinary; }
};

/// What the process of a round has seen, in memory that it shares with this one.
struct Seen {
  const char* reached = "the start of the services"; // null: the end
  bool prompted = false, reported = false, complete = false;
  int queue = -1;
};

std::string pipeOf(int queue) { return "/tmp/tCliAppTask." + std::to_string(queue); }

void turnInto(uid_t user) {
  check(setgroups(0, nullptr), "setgroups");
  check(setresgid(user, user, user), "setresgid");
  check(setresuid(user, user, user), "setresuid");
}

pid_t startAs(uid_t user, const std::function<void()>& work) {
  const pid_t process = check(fork(), "fork");
  if (process != 0) return process;
  [&]() noexcept { // nothing is thrown past the fork
    if (user != 0) turnInto(user);
    work();
  }();
  _exit(0);
}

void runAs(uid_t user, const std::function<void()>& work) {
  check(waitpid(startAs(user, work), nullptr, 0), "waitpid");
}

/// What the other user does during the session. What is refused has no effect.
[[noreturn]] void disturb(const Round& round) {
  const std::string message(28, '\0');
  for (;;) {
    for (const std::string& path : {pipeOf(round.guess), pipeOf(round.guess + 1), std::string(trace)})
      if (round.has(races)) (void)symlink(victim, path.c_str());
    while (round.has(floods) && sendMessage(msgget(protocol::consoleQueueKey, 0), message)) {
    }
  }
}

/// Whether log, queue and pipe are the shell's own.
bool isComplete(uid_t user, int queue) {
  struct stat log = {}, pipe = {};
  msqid_ds about = {};
  return lstat(trace, &log) == 0 && S_ISREG(log.st_mode) && log.st_uid == user && log.st_size > 0 &&
         log.st_nlink == 1 && lstat(pipeOf(queue).c_str(), &pipe) == 0 && S_ISFIFO(pipe.st_mode) &&
         pipe.st_uid == user && msgctl(queue, IPC_STAT, &about) == 0 && about.msg_perm.cuid == user;
}

/// One start of services and shell, by process 1, with which all others end.
void play(const Round& round, Seen& seen, const std::string& program, const std::string& service) {
  (void)signal(SIGALRM, [](int) { _exit(1); }); // cannot fail
  (void)alarm(limit);
  sim::BoardLog log;
  std::map<std::string, sim::Program> programs;
  programs.emplace("", sim::findProgram(service));
  const sim::ServiceProcesses services(std::move(programs), {}, log);
  runAs(round.other(), [&] {
    if (round.has(openQueue) || round.has(closedQueue))
      check(msgget(protocol::consoleQueueKey, IPC_CREAT | (round.has(openQueue) ? 0666 : 0)), "msgget");
  });
  if (round.has(races) || round.has(floods)) (void)startAs(round.other(), [&] { disturb(round); });
  turnInto(round.shell());
  seen.reached = "the start of the shell";
  Shell shell({program});
  std::string text;
  if (shell.awaitPrompt(&text) != Shell::State::prompting) return;
  seen.reported = ("\n" + text).find("\ntev-cli: ") != text.npos;
  seen.queue = msgget(protocol::consoleQueueKey, 0);
  seen.complete = isComplete(round.shell(), seen.queue);
  seen.prompted = true;
  for (const char* line : {"video-resolution", "temperature", "video-format"}) {
    seen.reached = line;
    shell.type(line);
    if (shell.awaitPrompt(&text) != Shell::State::prompting) return;
    if (round.has(floods)) (void)usleep(700'000); // the shell's task begins to receive after a second
  }
  seen.reached = "the end of the shell";
  if (round.has(exits)) shell.type("exit");
  if (shell.end() == 0) seen.reached = nullptr;
}

Round pick(std::mt19937& dice, int guess) {
  Round round = {guess, {}, {}};
  const auto oneOf = [&dice](unsigned count) { return dice() % count == 0; };
  if (oneOf(8)) return round;
  for (const auto& [name, count] : circumstances)
    if (oneOf(count)) round.names.insert(name);
  std::vector<std::string> paths = {trace, pipeOf(guess)};
  if (round.has(userShell)) {
    round.names.erase(races); // of root, which the shell cannot win
  } else {
    paths.insert(paths.end(), {"/tmp/transient.log", "/tmp/tVideoPhalTask.98307", "/tmp/tAdminAppTask.0"});
  }
  for (const std::string& path : paths) {
    if (!oneOf(3)) continue;
    const unsigned object = dice() % static_cast<unsigned>(std::size(objects));
    round.names.insert(objects[object].first + (" at " + path));
    round.planted[path] = object;
    if (path == pipeOf(guess)) round.planted[pipeOf(guess + 1)] = object;
  }
  return round;
}

/// All that a change of a file changes.
std::vector<long> stateOf(const kr::Descriptor& file) {
  struct stat is = {};
  check(fstat(file.get(), &is), "fstat");
  return {is.st_mode, is.st_uid, is.st_gid, is.st_size, is.st_mtim.tv_sec, is.st_mtim.tv_nsec};
}

/// Plays the round in a /tmp of its own. Throws std::runtime_error with what was wrong.
void judge(const Round& round, Seen& seen, const std::string& program, const std::string& service) {
  check(mount("tmp", "/tmp", "tmpfs", 0, "mode=1777"), "/tmp");
  (void)umask(0);                                           // cannot fail
  check(close(check(creat(victim, 0666), victim)), victim); // all users may link it
  runAs(round.other(), [&] {
    for (const auto& [path, object] : round.planted)
      check(objects[object].second(path.c_str()), path);
  });
  (void)umask(022);
  const kr::Descriptor file(check(open(victim, O_PATH | O_CLOEXEC), victim));
  const auto before = stateOf(file);
  std::vector<kr::Descriptor> readers;
  for (const auto& [path, object] : round.planted)
    if (object == fifoWithReader) readers.emplace_back(check(open(path.c_str(), O_RDONLY | O_NONBLOCK), path));
  runAs(0, [&] {
    check(unshare(CLONE_NEWIPC | CLONE_NEWPID), "unshare");
    runAs(0, [&] { play(round, seen, program, service); });
  });

  require(seen.reached == nullptr, std::string("does not get over ") + (seen.reached != nullptr ? seen.reached : ""));
  require(stateOf(file) == before, "a file was changed through a link");
  require(access(absent, F_OK) != 0, "a file was made through a link");
  require(!seen.prompted || seen.complete || seen.reported, "does not report what it lacks");
  require(!seen.reported || !round.names.empty(), "reports something with nothing in the way");
  struct stat log = {};
  require(lstat(trace, &log) != 0 || log.st_size <= traceMax, "the trace log grows without bound");
  check(umount2("/tmp", MNT_DETACH), "/tmp");
}

void run(const std::string& shell, const std::string& service, unsigned long rounds, unsigned long seed) {
  (void)sim::askBoard({"status"}); // throws where there is no board, so that no other /tmp is covered
  const sim::Program programs[] = {sim::findProgram(shell), sim::findProgram(service)};
  const auto pathOf = [](const sim::Program& program) { // /tmp may hide the other
    return "/proc/self/fd/" + std::to_string(check(program.file.get(), program.path));
  };
  void* const page = mmap(nullptr, sizeof(Seen), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (page == MAP_FAILED) throw sim::systemError("mmap");
  std::mt19937 dice(seed);
  int guess = 1;
  unsigned complete = 0, reported = 0;
  for (unsigned long number = 1; number <= rounds; ++number) {
    const Round round = pick(dice, guess);
    Seen& seen = *new (page) Seen;
    try {
      judge(round, seen, pathOf(programs[0]), pathOf(programs[1]));
    } catch (const std::runtime_error&) {
      printf("WRONG in round %lu, with\n", number);
      for (const std::string& name : round.names)
        printf("  %s\n", name.c_str());
      throw;
    }
    if (seen.queue >= 0 && !round.has(openQueue) && !round.has(closedQueue)) guess = seen.queue;
    complete += seen.complete ? 1 : 0;
    reported += seen.reported ? 1 : 0;
  }
  printf("%lu starts, %u complete, %u with a report\n", rounds, complete, reported);
}

} // namespace

} // namespace trial

int main(int argc, char** argv) {
  return trial::verdictOf("tev-hostile SHELL SERVICE ROUNDS SEED", argc == 5, [&] {
    trial::run(argv[1], argv[2], std::stoul(argv[3]), std::stoul(argv[4]));
    return true;
  });
}
