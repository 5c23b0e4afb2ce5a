// How the programs of the trials end.
#ifndef TEV_TRIAL_VERDICT_H
#define TEV_TRIAL_VERDICT_H

#include <csignal>
#include <cstdio>
#include <stdexcept>
#include <string>

namespace trial {

/// Throws std::runtime_error with `otherwise` unless all is well.
inline void require(bool fine, const std::string& otherwise) {
  if (!fine) throw std::runtime_error(otherwise);
}

/// Runs a trial, which returns whether all was well or throws. Returns the exit status of its program: 0, or 1 with the
/// exception on standard error. Without `started`, the arguments are wrong: 2, with `usage` on standard error.
template <class Work>
int verdictOf(const char* usage, bool started, const Work& work) {
  (void)signal(SIGPIPE, SIG_IGN); // cannot fail
  if (!started) (void)fprintf(stderr, "usage: %s\n", usage);
  if (!started) return 2;
  try {
    return work() ? 0 : 1;
  } catch (const std::exception& error) {
    (void)fflush(stdout); // a lost line shows by itself
    (void)fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}

} // namespace trial

#endif
