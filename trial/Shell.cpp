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

Shell::Shell(const std::string& program, Words environment)
    : _child({program}, Child::Streams::inputAndOutput, std::move(environment)) {}

Shell::State Shell::awaitPrompt(std::string* text) {
  auto came = Child::Came::text;
  size_t at = findPrompt(_child.unread);
  while (at == std::string::npos && (came = _child.readMore(longestSilence)) == Child::Came::text)
    at = findPrompt(_child.unread);
  *text = withoutThreadLines(_child.unread.substr(0, at));
  _child.unread.erase(0, at == std::string::npos ? at : at + sizeof prompt - 1);
  return came == Child::Came::text ? State::prompting : came == Child::Came::end ? State::ended : State::silent;
}

int Shell::end(std::string* text) {
  _child.endInput();
  while (_child.readMore(longestSilence) == Child::Came::text) {
  }
  *text = withoutThreadLines(std::exchange(_child.unread, ""));
  return _child.wait();
}

} // namespace trial
