#include "ctl/Options.h"

#include <cstdlib>

const char* const Options::helpText =
    "usage: tevctl [--json] [--timeout SECONDS] COMMAND [WORD]...\n"
    "       tevctl [--json] [--timeout SECONDS] [--keep-going] --batch [FILE]\n"
    "       tevctl --list | --help\n"
    "\n"
    "  --json             print a JSON object for each command\n"
    "  --timeout SECONDS  end the whole call after this time (without it: each command after 30 seconds)\n"
    "  --batch [FILE]     run the lines of FILE, or of standard input, up to the first that is not done\n"
    "  --keep-going       run the lines behind it, too\n"
    "  --list             list the words of all commands, and whether they only read\n"
    "\n"
    "exit status: 0 done, 1 refused, 2 wrong words or options, 3 no answer in time, 4 not there, 70 internal\n";

namespace {

constexpr double longestTimeout = 1e6; // seconds: eleven days

} // namespace

std::string Options::read(int argc, const char* const* argv) {
  const ArgVec all(argv + (argc > 0 ? 1 : 0), argv + argc);
  auto word = all.begin();
  for (; word != all.end() && word->compare(0, 1, "-") == 0; ++word) {
    if (*word == "--") {
      ++word;
      break;
    }
    if (*word == "--json") {
      json = true;
    } else if (*word == "--keep-going") {
      keepGoing = true;
    } else if (*word == "--batch") {
      action = Action::batch;
    } else if (*word == "--list") {
      action = Action::list;
    } else if (*word == "--help") {
      action = Action::help;
    } else if (*word == "--timeout") {
      if (word + 1 == all.end()) return "--timeout wants a number of seconds";
      timeoutText = *++word;
      char* end = nullptr;
      timeout = std::strtod(timeoutText.c_str(), &end);
      const bool isNumber = !timeoutText.empty() && timeoutText.find_first_not_of("0123456789.") == std::string::npos;
      if (!isNumber || *end != '\0' || timeout <= 0 || timeout > longestTimeout)
        return "--timeout wants a number of seconds, not " + timeoutText;
    } else {
      return "there is no option " + *word;
    }
  }
  words.assign(word, all.end());
  if (action == Action::batch && words.size() == 1) {
    batchFile = words[0];
    words.clear();
  }
  if (action != Action::run && !words.empty()) return "there is a word too many: " + words.back();
  if (action == Action::run && words.empty()) return "there is no command";
  if (keepGoing && action != Action::batch) return "--keep-going goes with --batch";
  return "";
}
