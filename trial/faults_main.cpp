// Runs on the stand-in board: starts the shell again and again, each time with another call of another kind failing,
// and compares what it prints with what it prints undisturbed.
//
// tev-faults SHELL LIBRARY [STEP]
#include "messaging/Protocol.h"
#include "sim/SystemError.h"
#include "trial/Injection.h"
#include "trial/Shell.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <map>
#include <regex>
#include <sstream>
#include <sys/mman.h>
#include <sys/msg.h>

namespace trial {

namespace {

constexpr char noThread[] = "krThreadSpawn Failed to spawn [tCliAppTask], ";

// How a failure shows. A node that cannot be read reads as empty, and so as 0. Of the 1792 + 126 of the tachometer
// count one part is left.
const std::regex failureLine("error: (std::bad_alloc|couldn't .*|cannot .*)|krThreadSpawn Failed to spawn "
                             "\\[tCliAppTask\\], .*|temperature: 11 degrees Celsius|temperature high point setting: "
                             "11 degrees Celsius|fan setting \\[0-63\\]: 0|fan rpm: (1605|22834)|video-format: ");

Words partsOf(const std::string& text, char end) {
  Words all;
  std::istringstream in(text);
  for (std::string part; std::getline(in, part, end);)
    all.push_back(part);
  return all;
}

// One of each kind. They set only what is set anyway, so that no answer depends on an earlier command.
const Words lines = partsOf(
    "|nonsense of some length and more words|help|help long|help stream|version|temperature setpoint 60|temperature"
    "|fan speed 15|fan|vlan on|vlan off|mac 00:11:22:33:44:55|mac|serialnum 480213UNIT654321|serialnum"
    "|video-format hdmi|video-format|video-resolution 1280x720p@30|video-resolution|video-resolution 1x1"
    "|audio-source digital|audio-source|snap 3 1|stream stop|stream|log enable all|log|reboot|factory config|exit",
    '|');

/// Sends the shell a message that is too long, and then two of which it knows none. False if it does not take them.
bool flood(int queue) {
  struct {
    long type = 1;
    char text[600] = {};
  } message;
  msqid_ds about = {};
  for (const size_t size : {600, 28, 28})
    if (msgsnd(queue, &message, size, IPC_NOWAIT) != 0) return false;
  // When it has taken the last one, it is through with the others.
  for (int waited = 0; msgctl(queue, IPC_STAT, &about) == 0 && waited < 100'000; ++waited) {
    if (about.msg_qnum == 0) return true;
    (void)usleep(100); // an interrupted pause only looks earlier
  }
  return false;
}

/// What a run printed, by line typed; the first answer is what precedes the first prompt.
struct Run {
  Words answers;
  int status = 0;
  bool silent = false;
  bool deaf = false; ///< its task did not take its messages
};

/// What came of faults of one kind.
struct Outcomes {
  unsigned unnoticed = 0; ///< printed what an undisturbed shell prints
  unsigned reported = 0;  ///< commands printed their words for a failure
  unsigned refused = 0;   ///< the shell ended at its start, and said why
  std::map<std::string, unsigned> words;
  Words wrong; ///< everything else
};

class Faults {
public:
  Faults(const std::string& program, const std::string& library) : _program(program) {
    const int fd = sim::check(memfd_create("injection", 0), "memfd_create"); // the shell opens it by the path below
    sim::check(ftruncate(fd, sizeof(Injection)), "ftruncate");
    void* const page = mmap(nullptr, sizeof(Injection), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (page == MAP_FAILED) throw sim::systemError("mmap");
    _injection = static_cast<Injection*>(page);
    _environment = {"LD_PRELOAD=" + library,
                    "TEV_INJECTION=/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(fd)};
  }

  bool run(uint32_t step) {
    _undisturbed = play(0, 0, 0);
    uint32_t reached[kind::other];
    std::copy(std::begin(_injection->calls), std::end(_injection->calls), reached);
    bool fine = _undisturbed.status == 0 && !_undisturbed.silent && !_undisturbed.deaf;
    printf("%-15s %8s %9s %10s %9s %8s %6s\n", "call", "reached", "injected", "unnoticed", "reported", "refused",
           "wrong");
    for (uint32_t kind = 0; kind < kind::other; ++kind) {
      Outcomes outcomes;
      unsigned injected = 0;
      // One call alone, and for what runs out rather than fails also all from that one on.
      for (const bool once : {true, false}) {
        for (uint32_t n = 1; n <= reached[kind] && (once || kind <= kind::open); n += step) {
          const Run disturbed = play(kind, n, once ? n : UINT32_MAX);
          injected += _injection->failed != 0 ? 1 : 0;
          judge(disturbed, std::to_string(n) + (once ? "" : " and all later"), outcomes);
        }
      }
      printf("%-15s %8u %9u %10u %9u %8u %6zu\n", callKinds[kind].name, reached[kind], injected, outcomes.unnoticed,
             outcomes.reported, outcomes.refused, outcomes.wrong.size());
      for (const auto& [text, count] : outcomes.words)
        printf("%24u x %s\n", count, text.c_str());
      for (const std::string& text : outcomes.wrong)
        printf("WRONG %s %s\n", callKinds[kind].name, text.c_str());
      fine = fine && outcomes.wrong.empty() && injected > 0;
      (void)fflush(stdout); // a lost line of the table shows by itself
    }
    return fine;
  }

private:
  Run play(uint32_t kind, uint32_t first, uint32_t last) const {
    memset(static_cast<void*>(_injection), 0, sizeof *_injection);
    _injection->kind = kind;
    _injection->first = first;
    _injection->last = last;
    // A shell that refused to start has left its queue. If it stays, the shell takes it.
    if (const int left = msgget(protocol::consoleQueueKey, 0); left >= 0) (void)msgctl(left, IPC_RMID, nullptr);
    Shell shell({_program}, _environment);
    Run run;
    std::string text;
    Shell::State state = shell.awaitPrompt(&text);
    // Without memory for its buffer the console gets pieces of lines, and two threads' lines may come apart.
    if (text.find_first_not_of('\n') == text.npos) text.clear();
    run.answers.push_back(text);
    // A task without a queue gets no messages.
    const int queue = msgget(protocol::consoleQueueKey, 0);
    if (state == Shell::State::prompting && text.find(noThread) == text.npos && queue >= 0) run.deaf = !flood(queue);
    for (auto line = lines.begin(); line != lines.end() && state == Shell::State::prompting; ++line) {
      shell.type(*line);
      state = shell.awaitPrompt(&text);
      run.answers.push_back(text);
    }
    run.silent = state == Shell::State::silent;
    if (!run.silent) run.status = shell.end(&text);
    return run;
  }

  /// The words in which a failure shows that makes an answer differ; none if it shows in anything else, or not at all.
  static Words failuresIn(const std::string& answer, const std::string& undisturbed) {
    Words words;
    const Words usual = partsOf(undisturbed, '\n');
    for (const std::string& line : partsOf(answer, '\n')) {
      if (std::find(usual.begin(), usual.end(), line) != usual.end()) continue;
      if (!std::regex_match(line, failureLine)) return {};
      words.push_back(line);
    }
    return words;
  }

  void judge(const Run& run, const std::string& fault, Outcomes& outcomes) const {
    const Words &answers = run.answers, &usual = _undisturbed.answers;
    static const std::string noStart = "tev-cli: out of memory\n";
    const std::string& begin = answers[0];
    if (run.deaf) {
      outcomes.wrong.push_back(fault + ": messages stay in the queue, status " + std::to_string(run.status));
    } else if (answers == usual && run.status == 0) {
      ++outcomes.unnoticed;
    } else if (run.status == 1 && answers.size() == 1 && begin.size() >= noStart.size() &&
               begin.compare(begin.size() - noStart.size(), noStart.size(), noStart) == 0) {
      ++outcomes.refused;
    } else if (run.status != 0 || run.silent) {
      outcomes.wrong.push_back(fault + (run.silent ? ": silent" : ": status " + std::to_string(run.status)) +
                               " after \"" + (answers.size() < 2 ? "" : lines[answers.size() - 2]) + "\"");
    } else {
      ++outcomes.reported;
      for (size_t i = 0; i < usual.size(); ++i) {
        const std::string answer = i < answers.size() ? answers[i] : "";
        if (answer == usual[i]) continue;
        const auto words = failuresIn(answer, usual[i]);
        for (const std::string& line : words)
          ++outcomes.words[line];
        if (words.empty()) outcomes.wrong.push_back(fault + ": " + (i == 0 ? "" : lines[i - 1]) + " gives: " + answer);
      }
    }
  }

  const std::string _program;
  Injection* _injection = nullptr;
  Words _environment;
  Run _undisturbed;
};

} // namespace

} // namespace trial

int main(int argc, char** argv) {
  try {
    if (argc == 3 || argc == 4) {
      (void)signal(SIGPIPE, SIG_IGN); // cannot fail
      return trial::Faults(argv[1], argv[2]).run(argc == 4 ? static_cast<uint32_t>(std::stoul(argv[3])) : 1) ? 0 : 1;
    }
    (void)fprintf(stderr, "usage: tev-faults SHELL LIBRARY [STEP]\n");
  } catch (const std::exception& error) {
    (void)fprintf(stderr, "tev-faults: %s\n", error.what());
  }
  return 2;
}
