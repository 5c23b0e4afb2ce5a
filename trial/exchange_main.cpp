// The synchronous exchange, in every order in which replies can arrive.
//
// The code that sends a request and reads its reply is the product's own. The system calls that it makes on queue and
// pipe end here, among services that answer at any moment: on time, late, twice, never, half or in two halves. Every
// choice that they have is tried. Mix-ups that the protocol rules out must not come about. Those that it permits are
// the stories on a page of the documentation, and each of them must come about.
//
// To be run on the stand-in appliance, because its endpoint makes a queue and a pipe.
//
// tev-exchange PAGE [FAULTS]      FAULTS is how many exchanges may be answered in another way than once and whole;
//                                 default: all
#include "trial/Verdict.h"
#include "trial/World.h"

#include <fstream>
#include <iterator>
#include <map>

namespace trial {

namespace {

using Stories = std::map<std::string, bool>; // whether each has come about

/// The stories in a file: what is between lines that mark code.
Stories storiesIn(const std::string& path) {
  std::ifstream file(path);
  const std::string page{std::istreambuf_iterator<char>(file), {}}, mark = "```\n";
  Stories stories;
  for (size_t begin = 0, end = 0; (begin = page.find(mark, end)) != page.npos; end += mark.size()) {
    begin += mark.size();
    end = page.find(mark, begin);
    require(end != page.npos, "a story without an end in " + path);
    stories[page.substr(begin, end - begin)] = false;
  }
  require(!stories.empty(), "no stories in " + path);
  return stories;
}

/// What is wrong about a way; empty if it keeps to the protocol. Stray bytes at its start permit mix-ups of replies in
/// time.
std::string ruledOut(const World& world, bool strayBytes) {
  bool allInTime = !strayBytes, allOwn = true;
  for (unsigned i = 0; i < exchanges; ++i) {
    const Exchange& exchange = world.all[i];
    const std::string who = "exchange " + std::to_string(i + 1);
    const bool own = world.isOwn(i);
    allOwn = allOwn && own;
    allInTime = allInTime && exchange.behaviour == Behaviour::whole && !exchange.timedOut;
    for (const Piece& piece : exchange.got) {
      if (piece.exchange != stray && piece.exchange > i) return who + " got bytes of a later reply";
      if (exchange.drained && piece.since < exchange.drainedAt) return who + " got bytes that its drain had to take";
      if (exchange.drained && piece.exchange < i && piece.since <= world.all[piece.exchange].endedAt)
        return who + " got bytes of another reply that were not late";
    }
    if (exchange.replied && exchange.timedOut) return who + " timed out and has a reply";
    const bool answered = exchange.behaviour == Behaviour::whole || exchange.behaviour == Behaviour::twice;
    if (exchange.drained && exchange.quiet && !own && (exchange.replied || (answered && !exchange.timedOut)))
      return who + " does not have its own reply, although no other bytes were on their way";
  }
  return allInTime && !allOwn ? "a mix-up although every reply came once, whole and in time" : world.fault;
}

/// Goes all ways. False, with the reason printed, if one of them must not be.
bool explore(const Trial& trial, CommObj& console, Stories& stories) {
  Choices choices;
  unsigned long ways = 0;
  do {
    World world(trial, choices, console);
    world.run();
    ++ways;
    for (const Exchange& exchange : world.all)
      if (const auto found = stories.find(exchange.story); found != stories.end()) found->second = true;
    const std::string problem = ruledOut(world, trial.strayPieces > 0);
    if (problem.empty()) continue;
    printf("%s: %s\n%s", trial.name, problem.c_str(), world.all[exchanges - 1].story.c_str());
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
  std::thread second;
  const auto isGood = [&] {
    World world(trial, choices, console);
    world.run();
    if (second.joinable()) second.join();
    return world.isOwn(0) && world.isOwn(1) && world.isOwn(2);
  };
  while (!isGood())
    (void)choices.nextWay(); // there are some
  bool started = false;
  World::atEachCall = [&] {
    if (!World::busy) return;
    if (!started) second = std::thread([&console] { delete requests[0].make(console.GetTaskId())->Send(); });
    started = true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20)); // time enough to do wrong
  };
  choices.again();
  const bool good = isGood();
  World::atEachCall = nullptr;
  printf("a second requester: %u trespasses\n", World::trespasses.load());
  return good && started && World::trespasses == 0;
}

bool run(const std::string& page, unsigned faults) {
  Stories stories = storiesIn(page);
  auto* console = new CommObj("tExchange"); // StopAll() deletes it
  require(console->GetPipeFd() >= 0, "no endpoint here");
  bool fine =
      explore({"late and faulty replies", faults, 0, false}, *console, stories) &&
      explore({"late replies and too many stray bytes", 0, drainedMax / strayPiece + 1, false}, *console, stories) &&
      explore({"late and faulty replies, and signals", 1, 0, true}, *console, stories) && secondWaits(*console);
  CommObj::StopAll();
  for (const auto& [story, cameAbout] : stories) {
    if (!cameAbout) printf("on the page, but never happened:\n%s", story.c_str());
    fine = fine && cameAbout;
  }
  printf("%zu stories\n", stories.size());
  return fine;
}

} // namespace

} // namespace trial

int main(int argc, char** argv) {
  return trial::verdictOf("tev-exchange PAGE [FAULTS]", argc == 2 || argc == 3, [&] {
    return trial::run(argv[1], argc == 3 ? static_cast<unsigned>(std::stoul(argv[2])) : trial::exchanges);
  });
}
