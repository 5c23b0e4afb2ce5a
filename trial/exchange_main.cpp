// The synchronous exchange, in every order in which replies can arrive.
//
// The code that sends a request and reads its reply is the product's own. The system calls that it makes on queue and
// pipe end here, in a world of services that answer at any moment: on time, late, twice, never, half or in two halves.
// Every choice that this world has is tried. Mix-ups that the protocol rules out must not come about; those that it
// permits must, and of each the shortest way is printed.
//
// To be run on the stand-in appliance, because its endpoint makes a queue and a pipe.
//
// tev-exchange [FILE [FAULTS]]      FILE is the page that must show what is printed, FAULTS how many exchanges may be
//                                   answered in another way than once and whole: three, unless told otherwise
#include "trial/MixUps.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <poll.h>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace trial {

namespace {

// For a second requester: what it must not do while the first is between its drain and the end of its reply.
std::thread::id firstThread;
std::atomic<unsigned> trespasses{0};
std::function<void()> atEachCall;

/// Goes the way that `choices` has just been, and returns what happened on it.
std::vector<std::string> storyOf(const Trial& trial, Choices& choices, CommObj& console) {
  std::vector<std::string> story;
  choices.again();
  World same(trial, choices, console);
  same.run(&story);
  return story;
}

/// What is wrong about a way. Counts its mix-ups.
std::string judge(const World& w, const Trial& trial, std::vector<MixUp>& mixUps,
                  const std::function<void(MixUp&, unsigned)>& keep) {
  std::string problem = ruledOut(w, trial.stray);
  for (unsigned i = 0; i < exchanges; ++i) {
    bool known = !w.exchange(i).replied || isOwn(w.exchange(i), i);
    for (MixUp& mixUp : mixUps) {
      if (!mixUp.happened(w, i)) continue;
      known = true;
      ++mixUp.ways;
      if (w.exchange(i).endedAt < mixUp.fewestSteps) keep(mixUp, i);
    }
    if (!known && problem.empty()) problem = "exchange " + std::to_string(i + 1) + " has a mix-up of no known kind";
  }
  return problem;
}

bool explore(const Trial& trial, CommObj& console, std::vector<MixUp>& mixUps) {
  Choices choices;
  unsigned long ways = 0;
  do {
    World w(trial, choices, console);
    w.run();
    ++ways;
    const std::string problem = judge(w, trial, mixUps, [&](MixUp& mixUp, unsigned i) {
      mixUp.fewestSteps = w.exchange(i).endedAt;
      mixUp.story = storyOf(trial, choices, console);
      mixUp.story.resize(w.exchange(i).told);
    });
    if (problem.empty()) continue;
    printf("%s: %s\n", trial.name, problem.c_str());
    for (const std::string& line : storyOf(trial, choices, console))
      printf("    %s\n", line.c_str());
    return false;
  } while (choices.nextWay());
  printf("%s: %lu ways\n", trial.name, ways);
  return true;
}

/// Starts a second requester at each call of three good exchanges. It must touch neither queue nor pipe until the
/// exchange is over.
bool secondWaits(CommObj& console) {
  constexpr Trial trial = {"two requesters", 0, 0, false};
  Choices choices;
  const auto isGood = [&] {
    World w(trial, choices, console);
    w.run();
    return isOwn(w.exchange(0), 0) && isOwn(w.exchange(1), 1) && isOwn(w.exchange(2), 2);
  };
  while (!isGood())
    (void)choices.nextWay(); // there are some
  bool reached = true;
  unsigned at = 0;
  for (; reached; ++at) {
    unsigned call = 0;
    std::thread second;
    reached = false;
    atEachCall = [&] {
      if (call++ != at) return;
      reached = true;
      second = std::thread([&console] { delete requests[0].make(console.GetTaskId())->Send(); });
      std::this_thread::sleep_for(std::chrono::milliseconds(20)); // time enough to do wrong
    };
    choices.again();
    (void)isGood();
    if (second.joinable()) second.join();
  }
  atEachCall = nullptr;
  printf("a second requester, started at each of %u calls: %u trespasses\n", at - 1, trespasses.load());
  return at > 9 && trespasses == 0;
}

/// Prints the mix-ups, and whether each has come about and `page`, if there is one, shows it.
bool tell(const std::vector<MixUp>& mixUps, const std::string& page) {
  bool fine = true;
  for (const MixUp& mixUp : mixUps) {
    std::string text = std::string("### ") + mixUp.title + "\n\n```\n";
    for (const std::string& line : mixUp.story)
      text += line + "\n";
    text += "```\n";
    printf("\n%s", text.c_str());
    if (mixUp.ways == 0) printf("NEVER HAPPENED\n");
    const bool shown = page.empty() || page.find(text) != page.npos;
    if (!shown) printf("NOT ON THE PAGE\n");
    fine = fine && mixUp.ways > 0 && shown;
  }
  return fine;
}

bool run(const std::string& page, unsigned faults) {
  firstThread = std::this_thread::get_id();
  auto* console = new CommObj("tExchange"); // StopAll() deletes it
  if (console->GetPipeFd() < 0) throw std::runtime_error("no endpoint here");
  std::vector<MixUp> late = mixUps(), stray = mixUpsOfStrayBytes(), interrupted = mixUps();
  bool fine = explore({"late and faulty replies", faults, 0, false}, *console, late);
  fine = fine && explore({"late replies and too many stray bytes", 0, drainedMax + 32, false}, *console, stray);
  fine = fine && explore({"late and faulty replies, and signals", 1, 0, true}, *console, interrupted);
  fine = fine && secondWaits(*console);
  CommObj::StopAll();
  late.push_back(stray[0]);
  return tell(late, page) && fine;
}

/// Whether a call is part of the exchange that is watched.
bool isMine() {
  if (std::this_thread::get_id() == firstThread) {
    if (atEachCall) atEachCall();
    return true;
  }
  if (World::busy) ++trespasses;
  errno = EBADF;
  return false;
}

std::string contentsOf(const char* path) {
  std::ifstream file(path);
  std::stringstream text;
  text << file.rdbuf();
  if (!file) throw std::runtime_error(std::string("cannot read ") + path);
  return text.str();
}

} // namespace

} // namespace trial

// The product's calls come here instead of into the C library.
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {

int __wrap_poll(pollfd* wait, nfds_t, int timeout) {
  const int ready = trial::isMine() ? trial::World::current->poll(timeout) : -1;
  wait->revents = ready > 0 ? POLLIN : 0;
  return ready;
}
ssize_t __wrap_read(int, void* buffer, size_t size) {
  return trial::isMine() ? trial::World::current->read(buffer, size) : -1;
}
int __wrap_msgsnd(int, const void*, size_t, int) { return trial::isMine() ? trial::World::current->msgsnd() : -1; }

} // extern "C"
// NOLINTEND(bugprone-reserved-identifier)

int main(int argc, char** argv) {
  try {
    const std::string page = argc > 1 ? trial::contentsOf(argv[1]) : "";
    const unsigned long faults = argc > 2 ? std::stoul(argv[2]) : trial::exchanges;
    return trial::run(page, static_cast<unsigned>(faults)) ? 0 : 1;
  } catch (const std::exception& error) {
    (void)fprintf(stderr, "tev-exchange: %s\n", error.what());
    return 2;
  }
}
