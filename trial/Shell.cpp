#include "trial/Shell.h"

#include "trial/ThreadLines.h"

#include <utility>

namespace trial {

namespace {

constexpr char prompt[] = "tev-cli> ";
constexpr int longestSilence = 15'000; // milliseconds; an exchange takes three seconds at most

/// Where the first prompt at the start of a line begins. A help text may hold one elsewhere.
size_t findPrompt(const std::string& text) { return ('\n' + text).find(std::string("\n") + prompt); }

} // namespace

Shell::State Shell::awaitPrompt(std::string* text) {
  auto came = Came::text;
  size_t at = findPrompt(unread);
  while (at == std::string::npos && (came = readMore(longestSilence)) == Came::text)
    at = findPrompt(unread);
  *text = withoutThreadLines(unread.substr(0, at));
  unread.erase(0, at == std::string::npos ? at : at + sizeof prompt - 1);
  return came == Came::text ? State::prompting : came == Came::end ? State::ended : State::silent;
}

int Shell::end() {
  endInput();
  while (readMore(longestSilence) == Came::text) {
  }
  return wait();
}

} // namespace trial
