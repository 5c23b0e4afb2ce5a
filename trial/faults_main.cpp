// Runs on the stand-in board: starts the shell again and again, each time with another call of another kind failing,
// and compares what it prints with what it prints undisturbed.
//
// tev-faults SHELL LIBRARY [STEP]
#include "messaging/Protocol.h"
#include "sim/SystemError.h"
#include "trial/Injection.h"
#include "trial/Queues.h"
#include "trial/Shell.h"
#include "trial/Verdict.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <regex>
#include <sstream>
#include <sys/mman.h>

namespace trial {

namespace {

constexpr char noThread[] = "krThreadSpawn Failed to spawn [tCliAppTask], ";

// How a failure shows. A node that cannot be read reads as empty, and so as 0. Of the 1792 + 126 of the tachometer
// count one part is left.
const std::regex failureLine("error: (std::bad_alloc|couldn't .*|cannot .*)|krThreadSpawn Failed to spawn "
                             "\\[tCliAppTask\\], .*|temperature: 11 degrees Celsius|temperature high point setting: "
                             "11 degrees Celsius|fan setting \\[0-63\\]: 0|fan rpm: (1605|22834)|video-format: ");

Strings partsOf(const std::string& text, char end) {
  Strings all;
  std::istringstream in(text);
  for (std::string part; std::getline(in, part, end);)
    all.push_back(part);
  return all;
}

// One of each kind. They set only what is set anyway, so that no answer depends on an earlier command.
const Strings lines = partsOf(
    "|nonsense of some length and more words|help|help long|help stream|version|temperature setpoint 60|temperature"
    "|fan speed 15|fan|vlan on|vlan off|mac 00:11:22:33:44:55|mac|serialnum 480213UNIT654321|serialnum"
    "|video-format hdmi|video-format|video-resolution 1280x720p@30|video-resolution|video-resolution 1x1"
    "|audio-source digital|audio-source|snap 3 1|stream stop|stream|log enable all|log|reboot|factory config|exit",
    '|');

/// Sends the shell a message that is too long, and then two of which it knows none. False if it does not take them.
bool flood(int queue) {
  for (const size_t size : {600, 28, 28})
    if (!sendMessage(queue, std::string(size, '\0'))) return false;
  // When it has taken the last one, it is through with the others.
  for (int waited = 0; !isEmpty(queue); ++waited) {
    if (waited == 100'000) return false;
    (void)usleep(100); // an interrupted pause only looks earlier
  }
  return true;
}

/// What a run printed, by line typed; the first answer is what precedes the first prompt.
struct Run {
  Strings answers;
  int status = 0;
  bool silent = false;
  bool deaf = false; ///< its task did not take its messages
};

/// Whether an answer differs from the usual one only by lines that report a failure.
bool reportsFailure(const std::string& answer, const std::string& usual) {
  const Strings usualParts = partsOf(usual, '\n');
  bool reported = false;
  for (const std::string& part : partsOf(answer, '\n')) {
    if (std::find(usualParts.begin(), usualParts.end(), part) != usualParts.end()) continue;
    if (!std::regex_match(part, failureLine)) return false;
    reported = true;
  }
  return reported;
}

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
    printf("%-15s %8s %9s %6s\n", "call", "reached", "injected", "wrong");
    for (uint32_t kind = 0; kind < kind::other; ++kind) {
      unsigned injected = 0, wrong = 0;
      // One call alone, and for what runs out rather than fails also all from that one on.
      for (const bool once : {true, false}) {
        for (uint32_t n = 1; n <= reached[kind] && (once || kind <= kind::open); n += step) {
          const std::string problem = problemOf(play(kind, n, once ? n : UINT32_MAX));
          injected += _injection->failed != 0 ? 1 : 0;
          if (problem.empty()) continue;
          printf("WRONG %s %u%s: %s\n", callKinds[kind].name, n, once ? "" : " and all later", problem.c_str());
          ++wrong;
        }
      }
      printf("%-15s %8u %9u %6u\n", callKinds[kind].name, reached[kind], injected, wrong);
      fine = fine && wrong == 0 && injected > 0;
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
    if (!run.silent) run.status = shell.end();
    return run;
  }

  /// What is wrong about a run; empty if it is as it should be. A shell may go on and report what it could not do, or
  /// end at its start with a report.
  std::string problemOf(const Run& run) const {
    const Strings &answers = run.answers, &usual = _undisturbed.answers;
    if (run.deaf) return "messages stay in the queue, status " + std::to_string(run.status);
    if (run.status == 1 && answers.size() == 1 && answers[0].find("tev-cli: out of memory\n") != answers[0].npos)
      return "";
    if (run.silent || run.status != 0)
      return (run.silent ? "silent" : "status " + std::to_string(run.status)) + " after \"" +
             (answers.size() < 2 ? "" : lines[answers.size() - 2]) + "\"";
    for (size_t i = 0; i < usual.size(); ++i) {
      const std::string answer = i < answers.size() ? answers[i] : "";
      if (answer != usual[i] && !reportsFailure(answer, usual[i]))
        return "\"" + (i == 0 ? "" : lines[i - 1]) + "\" is answered: " + answer;
    }
    return "";
  }

  const std::string _program;
  Injection* _injection = nullptr;
  Strings _environment;
  Run _undisturbed;
};

} // namespace

} // namespace trial

int main(int argc, char** argv) {
  return trial::verdictOf("tev-faults SHELL LIBRARY [STEP]", argc == 3 || argc == 4, [&] {
    return trial::Faults(argv[1], argv[2]).run(argc == 4 ? static_cast<uint32_t>(std::stoul(argv[3])) : 1);
  });
}
