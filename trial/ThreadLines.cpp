#include "trial/ThreadLines.h"

#include <regex.h>
#include <stdexcept>

namespace trial {

std::string withoutThreadLines(std::string text) {
  for (const char* lines : {"New thread, tid = [^\n]*\n\n?",
                            "[0-9/]+ [0-9:.]+ \\[[0-9]+\\] krThreadSpawn: Spawned[^\n]*\n\n?|"
                            "(krThreadSpawn [^ \n]* ss:|krThreadSetPriority: |Thread \\[[^]\n]*\\])[^\n]*\n"}) {
    regex_t expression;
    if (regcomp(&expression, lines, REG_EXTENDED) != 0) throw std::logic_error(lines);
    regmatch_t found = {0, static_cast<regoff_t>(text.size())}; // where to look, then what is found
    while (regexec(&expression, text.data(), 1, &found, REG_STARTEND) == 0) {
      text.erase(static_cast<size_t>(found.rm_so), static_cast<size_t>(found.rm_eo - found.rm_so));
      found.rm_eo = static_cast<regoff_t>(text.size());
    }
    regfree(&expression);
  }
  return text;
}

} // namespace trial
