#include "trial/ThreadLines.h"

#include <regex.h>
#include <stdexcept>

namespace trial {

namespace {

void remove(const char* expression, std::string& text) {
  regex_t compiled;
  if (regcomp(&compiled, expression, REG_EXTENDED) != 0) throw std::logic_error(expression);
  regmatch_t found = {0, static_cast<regoff_t>(text.size())}; // where to look, then what is found
  while (regexec(&compiled, text.data(), 1, &found, REG_STARTEND) == 0) {
    text.erase(static_cast<size_t>(found.rm_so), static_cast<size_t>(found.rm_eo - found.rm_so));
    found = {0, static_cast<regoff_t>(text.size())};
  }
  regfree(&compiled);
}

} // namespace

std::string withoutThreadLines(std::string text) {
  remove("New thread, tid = [^\n]*\n\n", text);
  // A task without a queue has no name.
  remove("[0-9/]+ [0-9:.]+ \\[[0-9]+\\] krThreadSpawn: Spawned Thread \\[(tCliAppTask)?\\][^\n]*\n\n|"
         "(krThreadSpawn (tCliAppTask)? ss:|krThreadSetPriority: |Thread \\[(tCliAppTask)?\\])[^\n]*\n",
         text);
  return text;
}

} // namespace trial
