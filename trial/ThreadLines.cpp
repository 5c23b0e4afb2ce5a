#include "trial/ThreadLines.h"

#include <regex.h>
#include <stdexcept>

namespace trial {

namespace {

/// Text that an extended POSIX expression describes.
class Pattern {
public:
  explicit Pattern(const char* expression) {
    if (regcomp(&_expression, expression, REG_EXTENDED) != 0) throw std::logic_error(expression);
  }
  ~Pattern() { regfree(&_expression); }
  Pattern(const Pattern&) = delete;
  Pattern& operator=(const Pattern&) = delete;

  void removeFrom(std::string& text) const {
    regmatch_t found = {0, static_cast<regoff_t>(text.size())}; // where to look, then what is found
    while (regexec(&_expression, text.data(), 1, &found, REG_STARTEND) == 0) {
      text.erase(static_cast<size_t>(found.rm_so), static_cast<size_t>(found.rm_eo - found.rm_so));
      found.rm_eo = static_cast<regoff_t>(text.size());
    }
  }

private:
  regex_t _expression;
};

} // namespace

std::string withoutThreadLines(std::string text) {
  static const Pattern ofThread("New thread, tid = [^\n]*\n\n");
  // A task without a queue has no name.
  static const Pattern ofShell(
      "[0-9/]+ [0-9:.]+ \\[[0-9]+\\] krThreadSpawn: Spawned Thread \\[(tCliAppTask)?\\][^\n]*\n\n|"
      "(krThreadSpawn (tCliAppTask)? ss:|krThreadSetPriority: |Thread \\[(tCliAppTask)?\\])[^\n]*\n");
  ofThread.removeFrom(text);
  ofShell.removeFrom(text);
  return text;
}

} // namespace trial
