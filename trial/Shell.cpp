#include "trial/Shell.h"

#include "trial/ThreadLines.h"

#include <utility>

namespace trial {

namespace {

constexpr char prompt[] = "tev-cli> ";
constexpr int longestSilence = 15'000; // milliseconds; an exchange takes three seconds at most

/// Where the prompt begins that ends what `text` begins with. A help text may hold one, but not at the start of a line.
size_t findPrompt(const std::string& text) {
  size_t at = text.find(prompt);
  while (at != text.npos && at > 0 && text[at - 1] != '\n')
    at = text.find(prompt, at + 1);
  return at;
}

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

int Shell::end(std::string* text) {
  endInput();
  while (readMore(longestSilence) == Came::text) {
  }
  *text = withoutThreadLines(std::exchange(unread, ""));
  return wait();
}

} // namespace trial
