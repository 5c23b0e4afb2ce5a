#include "ctl/CallReport.h"

#include "ctl/Ending.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr off_t toolOutputMax = 65536; // what is kept of it

std::string quoted(std::string_view text) {
  static constexpr char digits[] = "0123456789abcdef";
  std::string json = "\"";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      json += '\\';
      json += c;
    } else if (c == '\n') {
      json += "\\n";
    } else if (byte >= 0x20 && byte < 0x7f) {
      json += c;
    } else {
      json += "\\u00";
      json += digits[byte >> 4];
      json += digits[byte & 15];
    }
  }
  return json + '"';
}

std::string named(std::string_view name, const std::string& json) { return quoted(name) + ':' + json; }

const char* outcomeOf(ExitStatus status) {
  switch (status) {
  case exitDone:
    return "done";
  case exitRefused:
    return "refused";
  case exitWrongWords:
    return "wrong-words";
  case exitNoAnswer:
    return "no-answer";
  case exitNotThere:
    return "not-there";
  case exitInternal:
    break;
  }
  return "internal";
}

ExitStatus statusOf(int reason) {
  switch (reason) {
  case ENOENT:
  case ENOTDIR:
  case ENODEV:
  case ENXIO:
    return exitNotThere;
  case ENOMEM:
  case EMFILE:
  case ENFILE:
    return exitInternal;
  default:
    return exitRefused;
  }
}

/// One line of what a tool printed.
std::string inOneLine(std::string text) {
  while (!text.empty() && text.back() == '\n')
    text.pop_back();
  std::replace(text.begin(), text.end(), '\n', ' ');
  return text;
}

std::string contentsOf(int fd) {
  const off_t end = lseek(fd, 0, SEEK_END);
  std::string text(static_cast<size_t>(std::clamp<off_t>(end, 0, toolOutputMax)), '\0');
  const ssize_t got = pread(fd, text.data(), text.size(), 0);
  text.resize(got > 0 ? static_cast<size_t>(got) : 0);
  return text;
}

} // namespace

void CallReport::begin(const std::string& command, unsigned line) {
  _command = command;
  _line = line;
  _status = exitDone;
  for (std::string* text : {&_values, &_subject, &_code, &_reason, &_toolOutput})
    text->clear();
}

std::string CallReport::json() const {
  std::string json = "{" + named("command", _command.empty() ? "null" : quoted(_command));
  if (_line > 0) json += "," + named("line", std::to_string(_line));
  json += "," + named("outcome", quoted(outcomeOf(_status)));
  if (_status == exitDone) return json + "," + named("values", "{" + _values + "}") + "}\n";
  if (!_subject.empty()) json += "," + named("subject", quoted(_subject));
  return json + _code + "," + named("reason", quoted(_reason)) + "}\n";
}

void CallReport::fail(ExitStatus status, std::string_view subject, const std::string& reason, const char* codeName,
                      int code) {
  if (_status != exitDone) return;
  _status = status;
  _subject = subject;
  _reason = reason;
  if (codeName != nullptr) _code = "," + named(codeName, std::to_string(code));
}

// ---- Values

void CallReport::addValue(std::string_view name, const std::string& json) {
  _values += (_values.empty() ? "" : ",") + named(name, json);
}

void CallReport::number(std::string_view name, int value) { addValue(name, std::to_string(value)); }

void CallReport::flag(std::string_view name, bool value) { addValue(name, value ? "true" : "false"); }

void CallReport::text(std::string_view name, std::string_view value) { addValue(name, quoted(value)); }

// ---- Failures

void CallReport::wrongWords() { fail(exitWrongWords, _command, _command + ": wrong words"); }

void CallReport::notThere(std::string_view what) {
  fail(exitNotThere, what, _command + ": there is no way to read " + std::string(what));
}

void CallReport::systemFailed(std::string_view path, int reason) {
  fail(statusOf(reason), path, std::string(path) + ": " + std::strerror(reason), "errno", reason);
}

// ---- Board tools

// A tool prints what it has to say into a file. Nothing reads while it runs, so a pipe would fill up.
bool CallReport::toolStarts() {
  _toolFile = memfd_create("tool", MFD_CLOEXEC);
  _standardOutput = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
  _standardError = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
  if (_toolFile < 0 || _standardOutput < 0 || _standardError < 0) {
    fail(exitInternal, "", std::string("no place for the output of a tool: ") + std::strerror(errno));
    return false;
  }
  ending::setStandardDescriptors(_standardOutput, _standardError);
  // A descriptor that is open can be replaced.
  (void)dup2(_toolFile, STDOUT_FILENO);
  (void)dup2(_toolFile, STDERR_FILENO);
  return true;
}

void CallReport::toolEnded(std::string_view tool, int status) {
  const int reason = errno;
  (void)dup2(_standardOutput, STDOUT_FILENO);
  (void)dup2(_standardError, STDERR_FILENO);
  ending::setStandardDescriptors(STDOUT_FILENO, STDERR_FILENO);
  const std::string output = contentsOf(_toolFile);
  for (const int fd : {_toolFile, _standardOutput, _standardError})
    (void)close(fd); // there is nothing to lose
  // An interrupt from the terminal is meant for this process as well, which ignored it meanwhile.
  if (status >= 0 && WIFSIGNALED(status) && (WTERMSIG(status) == SIGINT || WTERMSIG(status) == SIGQUIT))
    (void)raise(WTERMSIG(status)); // cannot fail
  if (status < 0) {
    systemFailed(tool, reason);
  } else if (status == 0) {
    _toolOutput += output;
    if (!output.empty()) text("output", output);
  } else {
    const int exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    const std::string words = inOneLine(output);
    fail(exitStatus == 127 ? exitNotThere : exitRefused, tool, // the system shell's number for what it cannot find
         std::string(tool) + " ended with status " + std::to_string(exitStatus) + (words.empty() ? "" : ": ") + words,
         "status", exitStatus);
  }
}
