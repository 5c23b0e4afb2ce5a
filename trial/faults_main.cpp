// Runs on the stand-in board: starts the shell again and again, each time with another call of another kind failing,
// and compares what it prints with what it prints undisturbed.
//
// tev-faults SHELL LIBRARY [STEP]
#include "trial/Injection.h"
#include "trial/Shell.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/msg.h>
#include <unistd.h>
#include <vector>

namespace trial {

namespace {

constexpr const char* kindNames[callKinds] = {"allocation", "open", "msgget", "mkfifo", "pthread_create", "msgsnd",
                                              "msgrcv",     "poll", "system", "read",   "write"};

/// One of each kind. They set only what is set anyway, so that no answer depends on an earlier command.
const std::vector<std::string> lines = {
    "",
    "nonsense of some length and more words",
    "help",
    "help long",
    "help stream",
    "version",
    "temperature setpoint 60",
    "temperature",
    "fan speed 15",
    "fan",
    "vlan on",
    "vlan off",
    "mac 00:11:22:33:44:55",
    "mac",
    "serialnum 480213UNIT654321",
    "serialnum",
    "video-format hdmi",
    "video-format",
    "video-resolution 1280x720p@30",
    "video-resolution",
    "video-resolution 1x1",
    "audio-source digital",
    "audio-source",
    "snap 3 1",
    "stream stop",
    "stream",
    "log enable all",
    "log",
    "reboot",
    "factory config",
    "exit",
};

/// The queue of the shell's task.
class Queue {
public:
  /// To be called before the shell starts: a shell that refused to start has left its queue.
  static void remove() {
    const int id = msgget(key, 0);
    if (id >= 0) (void)msgctl(id, IPC_RMID, nullptr); // if it stays, the shell takes it
  }

  /// Sends the shell a message that is too long, and then one that it does not know, as it knows none. False if it does
  /// not take them.
  static bool flood() {
    const int id = msgget(key, 0);
    if (id < 0) return true; // a task without a queue gets no messages
    // When it has taken the last one, it is through with the others.
    return send(id, 600) && send(id, 28) && send(id, 28) && isEmptied(id);
  }

private:
  static constexpr key_t key = 153191;

  static bool send(int id, size_t size) {
    struct {
      long type = 1;
      char text[600] = {};
    } message;
    return msgsnd(id, &message, size, IPC_NOWAIT) == 0;
  }

  static bool isEmptied(int id) {
    msqid_ds about = {};
    int result = 0;
    for (int waited = 0; (result = msgctl(id, IPC_STAT, &about)) == 0 && about.msg_qnum > 0; ++waited) {
      if (waited == 100'000) return false;
      (void)usleep(100); // an interrupted pause only looks earlier
    }
    return result == 0;
  }
};

class Page {
public:
  Page() {
    const int fd = memfd_create("injection", 0); // the shell opens it by the path below
    if (fd < 0 || ftruncate(fd, sizeof(Injection)) != 0) throw std::runtime_error("no shared memory");
    void* const page = mmap(nullptr, sizeof(Injection), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (page == MAP_FAILED) throw std::runtime_error("no shared memory");
    injection = static_cast<Injection*>(page);
    variable = "TEV_INJECTION=/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(fd);
  }

  void set(CallKind kind, uint32_t first, uint32_t last) const {
    memset(static_cast<void*>(injection), 0, sizeof *injection);
    injection->kind = kind;
    injection->first = first;
    injection->last = last;
  }

  Injection* injection;
  std::string variable;
};

/// What a run printed, by line typed; the first answer is what precedes the first prompt.
struct Run {
  std::vector<std::string> answers;
  int status = 0;
  bool silent = false;
  bool deaf = false; ///< its task did not take its messages
};

constexpr char noThread[] = "krThreadSpawn Failed to spawn [tCliAppTask], ";

Run play(const std::string& program, const Page& page, const std::string& preload) {
  Queue::remove();
  Shell shell(program, {preload, page.variable});
  Run run;
  std::string text;
  Shell::State state = shell.awaitPrompt(&text);
  // Without memory for its buffer the console gets pieces of lines, and two threads' lines may come apart.
  if (text.find_first_not_of('\n') == text.npos) text.clear();
  run.answers.push_back(text);
  if (state == Shell::State::prompting && text.find(noThread) == text.npos) run.deaf = !Queue::flood();
  for (auto line = lines.begin(); line != lines.end() && state == Shell::State::prompting; ++line) {
    shell.type(*line);
    state = shell.awaitPrompt(&text);
    run.answers.push_back(text);
  }
  run.silent = state == Shell::State::silent;
  if (!run.silent) run.status = shell.end(&text);
  return run;
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> all;
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find('\n', at), text.size());
    all.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  return all;
}

/// What came of faults of one kind.
struct Outcomes {
  unsigned unnoticed = 0; ///< printed what an undisturbed shell prints
  unsigned told = 0;      ///< commands printed their words for a failure
  unsigned refused = 0;   ///< the shell ended at its start, and said why
  std::map<std::string, unsigned> words;
  std::vector<std::string> wrong; ///< everything else
};

constexpr char noStart[] = "tev-cli: out of memory\n";

bool endsWith(const std::string& text, const std::string& ending) {
  return text.size() >= ending.size() && text.compare(text.size() - ending.size(), ending.size(), ending) == 0;
}

// A node that cannot be read reads as empty, and so as 0. Of the 1792 + 126 of the tachometer count one part is left.
const std::vector<std::string> ofEmptyNodes = {"temperature: 11 degrees Celsius",
                                               "temperature high point setting: 11 degrees Celsius",
                                               "fan setting [0-63]: 0",
                                               "fan rpm: 1605",
                                               "fan rpm: 22834",
                                               "video-format: "};

bool isOfFailure(const std::string& line) {
  return line == "error: std::bad_alloc" || line.rfind("error: couldn't ", 0) == 0 ||
         line.rfind("error: cannot ", 0) == 0 || line.rfind(noThread, 0) == 0 ||
         std::find(ofEmptyNodes.begin(), ofEmptyNodes.end(), line) != ofEmptyNodes.end();
}

/// The words in which a failure shows. False if it printed anything else that is new, or just less.
bool isTold(const std::string& answer, const std::string& undisturbed, std::vector<std::string>& words) {
  const auto known = linesOf(undisturbed);
  const size_t before = words.size();
  for (const std::string& line : linesOf(answer)) {
    if (std::find(known.begin(), known.end(), line) != known.end()) continue;
    if (!isOfFailure(line)) return false;
    words.push_back(line);
  }
  return words.size() > before;
}

void judge(const Run& run, const Run& undisturbed, const std::string& fault, Outcomes& outcomes) {
  if (run.deaf) {
    outcomes.wrong.push_back(fault + ": messages stay in the queue, status " + std::to_string(run.status));
    return;
  }
  if (run.answers == undisturbed.answers && run.status == 0) {
    ++outcomes.unnoticed;
    return;
  }
  if (run.status == 1 && run.answers.size() == 1 && endsWith(run.answers[0], noStart)) {
    ++outcomes.refused;
    ++outcomes.words["tev-cli: out of memory"];
    return;
  }
  std::vector<std::string> words;
  bool fine = run.status == 0 && !run.silent;
  for (size_t i = 0; i < undisturbed.answers.size() && fine; ++i) {
    const std::string answer = i < run.answers.size() ? run.answers[i] : "";
    fine = answer == undisturbed.answers[i] || isTold(answer, undisturbed.answers[i], words);
    if (!fine) outcomes.wrong.push_back(fault + ": \"" + (i == 0 ? "" : lines[i - 1]) + "\" gives: " + answer);
  }
  if (!fine) {
    outcomes.wrong.push_back(fault + (run.silent ? ": silent" : ": status " + std::to_string(run.status)));
    return;
  }
  ++outcomes.told;
  for (const std::string& line : words)
    ++outcomes.words[line];
}

int run(const std::string& program, const std::string& library, uint32_t step) {
  (void)signal(SIGPIPE, SIG_IGN); // cannot fail
  const Page page;
  const std::string preload = "LD_PRELOAD=" + library;
  page.set(CallKind::allocation, 0, 0);
  const Run undisturbed = play(program, page, preload);
  uint32_t reached[callKinds];
  std::copy(std::begin(page.injection->calls), std::end(page.injection->calls), reached);

  bool fine = undisturbed.status == 0 && !undisturbed.silent && !undisturbed.deaf;
  printf("%-15s %8s %9s %10s %6s %8s %6s\n", "call", "reached", "injected", "unnoticed", "told", "refused", "wrong");
  for (uint32_t kind = 0; kind < callKinds; ++kind) {
    // One call alone, and for what runs out rather than fails also all from that one on.
    const bool runsOut = kind <= static_cast<uint32_t>(CallKind::open);
    Outcomes outcomes;
    unsigned injected = 0;
    for (const bool once : {true, false}) {
      for (uint32_t n = 1; n <= reached[kind] && (once || runsOut); n += step) {
        page.set(static_cast<CallKind>(kind), n, once ? n : UINT32_MAX);
        const Run disturbed = play(program, page, preload);
        injected += page.injection->failed != 0 ? 1 : 0;
        judge(disturbed, undisturbed, std::to_string(n) + (once ? "" : " and all later"), outcomes);
      }
    }
    printf("%-15s %8u %9u %10u %6u %8u %6zu\n", kindNames[kind], reached[kind], injected, outcomes.unnoticed,
           outcomes.told, outcomes.refused, outcomes.wrong.size());
    for (const auto& [text, count] : outcomes.words)
      printf("%24u x %s\n", count, text.c_str());
    for (const std::string& text : outcomes.wrong)
      printf("WRONG %s %s\n", kindNames[kind], text.c_str());
    fine = fine && outcomes.wrong.empty() && injected > 0;
    (void)fflush(stdout);
  }
  return fine ? 0 : 1;
}

} // namespace

} // namespace trial

int main(int argc, char** argv) {
  try {
    if (argc == 3 || argc == 4)
      return trial::run(argv[1], argv[2], argc == 4 ? static_cast<uint32_t>(std::stoul(argv[3])) : 1);
    (void)fprintf(stderr, "usage: tev-faults SHELL LIBRARY [STEP]\n");
  } catch (const std::exception& error) {
    (void)fprintf(stderr, "tev-faults: %s\n", error.what());
  }
  return 2;
}
