// The synchronous exchange, in every order in which replies can arrive.
//
// The code that sends a request and reads its reply is the product's own. The system calls that it makes on queue and
// pipe end here, among services that answer at any moment: on time, late, twice, never, half or in two halves. Every
// choice that they have is tried. Mix-ups that the protocol rules out must not come about; those that it permits must,
// and of each the shortest way is printed.
//
// To be run on the stand-in appliance, because its endpoint makes a queue and a pipe.
//
// tev-exchange [FILE [FAULTS]]      FILE is the page that must show what is printed, FAULTS how many exchanges may be
//                                   answered in another way than once and whole; default: three
#include "trial/MixUps.h"

#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace trial {

namespace {

struct MixUp {
  unsigned fewestSteps = ~0U;          // to the end of the exchange
  std::vector<std::string> story = {}; // empty if it has not happened
};
using Found = std::array<MixUp, mixUps>;

/// Goes the way that `choices` has just been, and returns what happened up to the end of exchange `last`.
std::vector<std::string> storyOf(const Trial& trial, Choices& choices, CommObj& console, unsigned last) {
  choices.again();
  World world(trial, choices, console);
  world.tellsStory = true;
  world.run();
  world.story.resize(world.lines[last]);
  return world.story;
}

/// Goes all ways. False, with the reason printed, if one of them must not be.
bool explore(const Trial& trial, CommObj& console, Found& found) {
  Choices choices;
  unsigned long ways = 0;
  do {
    World world(trial, choices, console);
    world.run();
    ++ways;
    std::string problem = ruledOut(world, trial.strayPieces > 0);
    for (unsigned i = 0; i < exchanges; ++i) {
      const Exchange& exchange = world.all[i];
      const auto happened = mixUpsOf(world, i);
      for (size_t kind = 0; kind < mixUps; ++kind) {
        if (!happened[kind] || exchange.endedAt >= found[kind].fewestSteps) continue;
        found[kind] = {exchange.endedAt, storyOf(trial, choices, console, i)};
      }
      const bool known = std::find(happened.begin(), happened.end(), true) != happened.end();
      if (exchange.replied && !world.isOwn(i) && !known && problem.empty())
        problem = "exchange " + std::to_string(i + 1) + " has a mix-up of no known kind";
    }
    if (problem.empty()) continue;
    printf("%s: %s\n", trial.name, problem.c_str());
    for (const std::string& line : storyOf(trial, choices, console, exchanges - 1))
      printf("    %s\n", line.c_str());
    return false;
  } while (choices.nextWay());
  printf("%s: %lu ways\n", trial.name, ways);
  return true;
}

/// Starts a second requester during the first of three good exchanges. It must touch neither queue nor pipe until the
/// exchange is over.
bool secondWaits(CommObj& console) {
  constexpr Trial trial = {"two requesters", 0, 0, false};
  Choices choices;
  const auto isGood = [&] {
    World world(trial, choices, console);
    world.run();
    return world.isOwn(0) && world.isOwn(1) && world.isOwn(2);
  };
  while (!isGood())
    (void)choices.nextWay(); // there are some
  std::thread second;
  World::atEachCall = [&] {
    if (!World::busy) return;
    if (!second.joinable()) second = std::thread([&console] { delete requests[0].make(console.GetTaskId())->Send(); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20)); // time enough to do wrong
  };
  choices.again();
  const bool good = isGood();
  World::atEachCall = nullptr;
  second.join();
  printf("a second requester: %u trespasses\n", World::trespasses.load());
  return good && World::trespasses == 0;
}

/// Prints the mix-ups. Whether each has come about and `page`, if there is one, shows it.
bool print(const Found& found, const std::string& page) {
  bool fine = true;
  for (size_t kind = 0; kind < mixUps; ++kind) {
    std::string text = std::string("### ") + titles[kind] + "\n\n```\n";
    for (const std::string& line : found[kind].story)
      text += line + "\n";
    text += "```\n";
    const bool shown = page.empty() || page.find(text) != page.npos;
    printf("\n%s%s%s", text.c_str(), found[kind].story.empty() ? "NEVER HAPPENED\n" : "",
           shown ? "" : "NOT ON THE PAGE\n");
    fine = fine && !found[kind].story.empty() && shown;
  }
  return fine;
}

bool run(const std::string& page, unsigned faults) {
  auto* console = new CommObj("tExchange"); // StopAll() deletes it
  if (console->GetPipeFd() < 0) throw std::runtime_error("no endpoint here");
  Found late, stray, interrupted;
  bool fine = explore({"late and faulty replies", faults, 0, false}, *console, late);
  fine = fine &&
         explore({"late replies and too many stray bytes", 0, drainedMax / strayPiece + 1, false}, *console, stray);
  fine = fine && explore({"late and faulty replies, and signals", 1, 0, true}, *console, interrupted);
  fine = fine && secondWaits(*console);
  CommObj::StopAll();
  late.back() = stray.back();
  return print(late, page) && fine;
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
