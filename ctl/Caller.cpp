#include "ctl/Caller.h"

#include "commands/Commands.h"
#include "commands/Words.h"
#include "ctl/Ending.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <sstream>
#include <unistd.h>

namespace {

constexpr double longestCommand = 30; // seconds, unless there is a limit for the whole call

// Writes all of `text`. Returns 0 or an errno.
int writeAll(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = write(fd, text.data(), text.size());
    if (count < 0 && errno != EINTR) return errno;
    if (count > 0) text.remove_prefix(static_cast<size_t>(count));
  }
  return 0;
}

// Prints on standard output.
ExitStatus printOutput(const std::string& text) {
  const int reason = writeAll(STDOUT_FILENO, text);
  if (reason == 0) return exitDone;
  (void)writeAll(STDERR_FILENO, std::string("tevctl: standard output: ") + std::strerror(reason) + "\n");
  return exitInternal;
}

bool isInteger(std::string_view text, int& value) {
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

bool fits(const std::string& word, std::string_view place) {
  if (word.empty()) return false;
  if (place[0] != '<') return isOneOf(word, place);
  const size_t dots = place.find("..");
  int lowest = 0, highest = 0, value = 0;
  if (dots == place.npos || !isInteger(place.substr(1, dots - 1), lowest)) return true; // any word
  (void)isInteger(place.substr(dots + 2, place.size() - dots - 3), highest);            // is one
  return isInteger(word, value) && value >= lowest && value <= highest;
}

bool fits(const ArgVec& words, const Form& form) {
  ArgVec places;
  splitLine(form.words, places);
  return words.size() == places.size() + 1 &&
         std::equal(words.begin() + 1, words.end(), places.begin(),
                    [](const auto& word, const auto& place) { return fits(word, place); });
}

std::string lineOf(const std::string& key, const Form& form) {
  return form.words[0] == '\0' ? key : key + " " + form.words;
}

// Collects what commands print for the console.
class ConsoleCollected {
public:
  ConsoleCollected() : _output(std::cout.rdbuf(&_text)), _error(std::cerr.rdbuf(&_text)) {}
  ~ConsoleCollected() {
    std::cout.rdbuf(_output);
    std::cerr.rdbuf(_error);
  }
  ConsoleCollected(const ConsoleCollected&) = delete;
  ConsoleCollected& operator=(const ConsoleCollected&) = delete;

  std::string text() const { return _text.str(); }

private:
  std::stringbuf _text;
  std::streambuf* const _output;
  std::streambuf* const _error;
};

// A line of any length.
class Line {
public:
  Line() = default;
  ~Line() { std::free(_text); }
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;

  bool read(FILE* in) { return getline(&_text, &_room, in) >= 0; }
  std::string text() const { return {_text, std::strcspn(_text, "\n")}; }

private:
  char* _text = nullptr;
  size_t _room = 0;
};

} // namespace

Caller::Caller(const Options& options) : _options(options), _reportBefore(Report::present) {
  enterCommands(_commands, [this](CmdFunctor* command, const Forms& forms) {
    _commands[command->getkey()] = command;
    _forms.emplace(command->getkey(), forms);
  });
  Report::present = &_report;
}

Caller::~Caller() {
  Report::present = _reportBefore;
  for (const auto& [key, command] : _commands)
    delete command;
}

// Prepares what is printed if the time is over before the command has ended.
void Caller::begin(const std::string& command, unsigned line) {
  _line = line;
  ending::setLastWords("", "");
  _report.begin(command, line);
  _report.fail(exitNoAnswer, command,
               (command.empty() ? "there was no line" : command + ": no answer") + std::string(" within ") +
                   (_options.timeout > 0 ? _options.timeoutText : std::to_string(static_cast<int>(longestCommand))) +
                   " seconds");
  const std::string where = line > 0 ? "line " + std::to_string(line) + ": " : "";
  ending::setLastWords("tevctl: " + where + _report.reason() + "\n", _options.json ? _report.json() : "");
  _report.begin(command, line);
}

ExitStatus Caller::run(const ArgVec& words, unsigned line) {
  begin(words[0], line);
  std::string printed;
  const auto command = _commands.find(words[0]);
  const auto forms = _forms.find(words[0]);
  if (words[0] == "exit") {
    _report.fail(exitRefused, words[0], "exit: there is no console to leave");
  } else if (command == _commands.end()) {
    _report.fail(exitWrongWords, words[0], "there is no command " + words[0]);
  } else if (std::none_of(forms->second.begin(), forms->second.end(),
                          [&](const Form& form) { return fits(words, form); })) {
    _report.fail(exitWrongWords, words[0], usage(*command));
  } else {
    runCommand(*command->second, words, printed);
  }
  return print(printed);
}

void Caller::runCommand(CmdFunctor& command, const ArgVec& words, std::string& printed) {
  if (_options.timeout == 0) ending::limit(longestCommand);
  try {
    const ConsoleCollected console;
    (void)command(words); // there is no history
    printed = console.text();
  } catch (const std::bad_alloc&) {
    _report.fail(exitInternal, "", std::strerror(ENOMEM));
  }
  if (_options.timeout == 0) ending::limit(0);
}

ExitStatus Caller::print(const std::string& printed) {
  const ExitStatus status = _report.status();
  // From here on the time can only end the call; it prints no second object.
  ending::setLastWords("", "");
  if (status != exitDone) {
    const std::string where = _line > 0 ? "line " + std::to_string(_line) + ": " : "";
    (void)writeAll(STDERR_FILENO, "tevctl: " + where + _report.reason() + "\n"); // there is no other place for it
  }
  std::string output = _report.json();
  if (!_options.json) output = status == exitDone ? _report.toolOutput() + printed : "";
  return printOutput(output) == exitDone ? status : exitInternal;
}

ExitStatus Caller::wrongOptions(const std::string& reason) {
  _report.begin("", 0);
  _report.fail(exitWrongWords, "", reason + " (see tevctl --help)");
  return print("");
}

ExitStatus Caller::systemFailed(const std::string& what, int reason) {
  _report.begin("", _line);
  _report.systemFailed(what, reason);
  return print("");
}

ExitStatus Caller::runBatch(FILE* in) {
  ExitStatus first = exitDone;
  Line line;
  ArgVec words;
  for (unsigned number = 1; begin("", number), line.read(in); ++number) {
    splitLine(line.text(), words);
    if (words.empty() || words[0][0] == '#') continue;
    const ExitStatus status = run(words, number);
    if (first == exitDone) first = status;
    if (status != exitDone && !_options.keepGoing) return first;
  }
  if (ferror(in) == 0 && feof(in) != 0) return first;
  return systemFailed(_options.batchFile.empty() ? "standard input" : _options.batchFile, errno);
}

ExitStatus Caller::list() {
  std::string text;
  for (const auto& [key, forms] : _forms)
    for (const Form& form : forms)
      text += (form.effect == Form::reads ? "reads   " : "changes ") + lineOf(key, form) + "\n";
  return printOutput(text);
}

std::string Caller::usage(const CmdMap::value_type& command) const {
  std::string text = "usage: tevctl ";
  const char* separator = "";
  for (const Form& form : _forms.at(command.first)) {
    text += separator + lineOf(command.first, form);
    separator = ", or ";
  }
  return text;
}
