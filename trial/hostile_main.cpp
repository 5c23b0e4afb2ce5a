// Starts services and shell on a machine with another user, who puts things in their way: in /tmp and under the key of
// the shell's queue, before the start and during the session. Most shells are root's, and the other user an ordinary
// one; some are an ordinary user's, with what root may have left there.
//
// To be run on the stand-in appliance by root: tev-hostile SHELL SERVICE ROUNDS SEED
#include "sim/BoardSocket.h"
#include "sim/ServiceProcesses.h"
#include "sim/SystemError.h"
#include "trial/Shell.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <functional>
#include <grp.h>
#include <map>
#include <new>
#include <random>
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/msg.h>
#include <sys/stat.h>
#include <sys/wait.h>

namespace trial {

namespace {

using sim::check;

constexpr uid_t ordinary = 65534;
constexpr key_t queueKey = 153191;
constexpr unsigned limit = 30;          // seconds, from the start of the services to the end of the shell
constexpr off_t traceMax = 1024 * 1024; // bytes
constexpr char victim[] = "/tmp/victim", absent[] = "/tmp/absent", trace[] = "/tmp/cli.log";

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

struct Round {
  int guess; // of the id of the shell's queue
  uid_t shell, other;
  std::map<std::string, unsigned> planted; // objects by path
  bool locked, open, races, relinks, floods, exits;
  std::vector<std::string> mix; // all that in words
};

/// What the process of a round has seen, in memory that it shares with this one.
struct Seen {
  const char* reached = "the start of the services"; // null: the end
  std::atomic<bool> prompted{false}, relinked{false};
  bool told = false, complete = false;
  int queue = -1;
};

std::string pipeOf(int queue) { return "/tmp/tCliAppTask." + std::to_string(queue); }

void turnInto(uid_t user) {
  check(setgroups(0, nullptr), "setgroups");
  check(setresgid(user, user, user), "setresgid");
  check(setresuid(user, user, user), "setresuid");
}

pid_t start(const std::function<void()>& work) {
  const pid_t process = check(fork(), "fork");
  if (process != 0) return process;
  [&]() noexcept { work(); }(); // nothing is thrown past the fork
  _exit(0);
}

void finish(const std::function<void()>& work) { check(waitpid(start(work), nullptr, 0), "waitpid"); }

/// What the other user does during the session. What is refused has no effect.
void disturb(const Round& round, Seen& seen) {
  struct {
    long type = 1;
    char text[28] = "";
  } message;
  for (;; (void)usleep(round.races || round.floods ? 0 : 1000)) {
    for (const std::string& path : {pipeOf(round.guess), pipeOf(round.guess + 1), std::string(trace)}) {
      if (round.races) (void)symlink(victim, path.c_str());
      if (round.relinks && seen.prompted && !seen.relinked && unlink(path.c_str()) == 0)
        (void)symlink(victim, path.c_str());
    }
    if (seen.prompted) seen.relinked = true;
    if (!round.floods) continue;
    const int queue = msgget(queueKey, 0);
    while (msgsnd(queue, &message, sizeof message.text, IPC_NOWAIT) == 0) {
    }
    const kr::Descriptor pipe(open(pipeOf(queue).c_str(), O_WRONLY | O_NONBLOCK | O_NOFOLLOW));
    struct stat is = {};
    if (fstat(pipe.get(), &is) == 0 && S_ISFIFO(is.st_mode) && is.st_uid == round.shell)
      (void)!write(pipe.get(), message.text, sizeof message.text);
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
  const sim::ServiceProcesses services(sim::findProgram(service), {}, log);
  finish([&] {
    turnInto(round.other);
    if (round.open || round.locked) check(msgget(queueKey, IPC_CREAT | (round.open ? 0666 : 0)), "msgget");
  });
  (void)start([&] {
    turnInto(round.other);
    disturb(round, seen);
  });
  turnInto(round.shell);
  seen.reached = "the start of the shell";
  Shell shell({program});
  std::string text;
  if (shell.awaitPrompt(&text) != Shell::State::prompting) return;
  seen.told = ("\n" + text).find("\ntev-cli: ") != text.npos;
  seen.queue = msgget(queueKey, 0);
  seen.complete = isComplete(round.shell, seen.queue);
  seen.prompted = true;
  while (!seen.relinked)
    (void)usleep(1000);
  for (const char* line : {"video-resolution", "temperature", "video-format"}) {
    seen.reached = line;
    shell.type(line);
    if (shell.awaitPrompt(&text) != Shell::State::prompting) return;
    if (round.floods) (void)usleep(700'000); // the shell's task begins to receive after a second
  }
  seen.reached = "the end of the shell";
  if (round.exits) shell.type("exit");
  if (shell.end(&text) == 0) seen.reached = nullptr;
}

Round pick(std::mt19937& dice, int guess) {
  Round round = {};
  round.guess = guess;
  const auto oneOf = [&](unsigned count) { return dice() % count == 0; };
  const auto mixIn = [&](bool in, const char* words) {
    if (in) round.mix.push_back(words);
    return in;
  };
  round.exits = oneOf(4);
  const bool usual = !mixIn(oneOf(4), "shell of a user");
  (usual ? round.other : round.shell) = ordinary;
  if (mixIn(oneOf(8), "nothing")) return round;
  std::vector<std::string> paths = {trace, pipeOf(guess)};
  if (usual) paths.insert(paths.end(), {"/tmp/transient.log", "/tmp/tVideoPhalTask.98307", "/tmp/tAdminAppTask.0"});
  for (const std::string& path : paths) {
    const unsigned object = dice() % static_cast<unsigned>(std::size(objects));
    if (!mixIn(oneOf(3), objects[object].first)) continue;
    round.planted[path] = object;
    if (path == pipeOf(guess)) round.planted[pipeOf(guess + 1)] = object;
  }
  round.open = mixIn(oneOf(5), "queue open to all");
  round.locked = !round.open && mixIn(oneOf(5), "queue open to nobody");
  round.races = usual && mixIn(oneOf(4), "links at all times");
  round.relinks = usual && mixIn(oneOf(3), "changed links");
  round.floods = mixIn(oneOf(6), "floods");
  return round;
}

/// All that a change of a file changes.
std::vector<long> stateOf(const kr::Descriptor& file) {
  struct stat is = {};
  check(fstat(file.get(), &is), "fstat");
  return {is.st_mode, is.st_uid, is.st_gid, is.st_size, is.st_mtim.tv_sec, is.st_mtim.tv_nsec};
}

/// Plays the round in a /tmp of its own. Returns what was wrong.
std::vector<std::string> judge(const Round& round, Seen& seen, const std::string& program, const std::string& service) {
  check(mount("tmp", "/tmp", "tmpfs", 0, "mode=1777"), "/tmp");
  (void)umask(0);                                           // cannot fail
  check(close(check(creat(victim, 0666), victim)), victim); // anybody may link it
  finish([&] {
    turnInto(round.other);
    for (const auto& [path, object] : round.planted)
      check(objects[object].second(path.c_str()), path);
  });
  (void)umask(022);
  std::map<std::string, std::pair<kr::Descriptor, std::vector<long>>> files;
  const auto watch = [&](const std::string& path, int flags) {
    kr::Descriptor file(check(open(path.c_str(), flags | O_CLOEXEC), path));
    const auto state = stateOf(file);
    files[path] = {std::move(file), state};
  };
  watch(victim, O_PATH);
  for (const auto& [path, object] : round.planted)
    watch(path, object == 0 ? O_RDONLY | O_NONBLOCK : O_PATH | O_NOFOLLOW); // 0: fifo with reader
  finish([&] {
    check(unshare(CLONE_NEWIPC | CLONE_NEWPID), "unshare");
    finish([&] { play(round, seen, program, service); });
  });

  std::vector<std::string> wrong;
  if (seen.reached != nullptr) wrong.push_back(std::string("does not get over ") + seen.reached);
  for (const auto& [path, file] : files)
    if (stateOf(file.first) != file.second) wrong.push_back(path + " has changed");
  if (access(absent, F_OK) == 0) wrong.push_back("a file was made through a link");
  if (seen.prompted && !seen.complete && !seen.told) wrong.push_back("does not tell what it lacks");
  if (seen.told && round.mix.back() == "nothing") wrong.push_back("tells of something with nothing in the way");
  struct stat log = {};
  if (lstat(trace, &log) == 0 && log.st_size > traceMax)
    wrong.push_back("the trace log has " + std::to_string(log.st_size) + " bytes");
  check(umount2("/tmp", MNT_DETACH), "/tmp");
  return wrong;
}

bool run(const std::string& shell, const std::string& service, unsigned long rounds, unsigned long seed) {
  (void)sim::askBoard({"status"}); // throws where there is no board, so that no other /tmp is covered
  (void)signal(SIGPIPE, SIG_IGN);  // cannot fail
  const sim::Program programs[] = {sim::findProgram(shell), sim::findProgram(service)};
  const auto pathOf = [](const sim::Program& program) { // /tmp may hide the other
    return "/proc/self/fd/" + std::to_string(check(program.file.get(), program.path));
  };
  void* const page = mmap(nullptr, sizeof(Seen), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (page == MAP_FAILED) throw sim::systemError("mmap");
  struct Outcomes {
    unsigned starts, complete, told, wrong;
  };
  std::map<std::string, Outcomes> table;
  std::mt19937 dice(seed);
  int guess = 1;
  for (unsigned long number = 1; number <= rounds; ++number) {
    Round round = pick(dice, guess);
    Seen& seen = *new (page) Seen;
    const auto wrong = judge(round, seen, pathOf(programs[0]), pathOf(programs[1]));
    if (seen.queue >= 0 && !round.open && !round.locked) guess = seen.queue;
    for (const std::string& what : wrong) {
      printf("WRONG %lu: %s;", number, what.c_str());
      for (const std::string& part : round.mix)
        printf(" [%s]", part.c_str());
      printf("\n");
    }
    (void)fflush(stdout);
    round.mix.push_back("all");
    for (const std::string& part : round.mix) {
      Outcomes& row = table[part];
      ++row.starts;
      row.complete += seen.complete;
      row.told += seen.told;
      row.wrong += !wrong.empty();
    }
  }
  printf("%-24s %7s %9s %5s %6s\n", "in the way", "starts", "complete", "told", "wrong");
  for (const auto& [part, row] : table)
    printf("%-24s %7u %9u %5u %6u\n", part.c_str(), row.starts, row.complete, row.told, row.wrong);
  return table["all"].wrong == 0;
}

} // namespace

} // namespace trial

int main(int argc, char** argv) {
  try {
    if (argc == 5) return trial::run(argv[1], argv[2], std::stoul(argv[3]), std::stoul(argv[4])) ? 0 : 1;
    (void)fprintf(stderr, "usage: tev-hostile SHELL SERVICE ROUNDS SEED\n");
  } catch (const std::exception& error) {
    (void)fprintf(stderr, "tev-hostile: %s\n", error.what());
  }
  return 2;
}
