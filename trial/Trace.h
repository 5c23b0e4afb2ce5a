// What the shell's trace log tells of the requests that the shell sends.
#ifndef TEV_TRIAL_TRACE_H
#define TEV_TRIAL_TRACE_H

#include "platform/internal/Descriptor.h"

#include <string>
#include <vector>

namespace trial {

/// How a request ended.
enum class Ending {
  none,     ///< nothing was asked
  answered, ///< by a reply that may be its own
  garbage,  ///< by bytes that are no reply
  mixedUp,  ///< by what was meant for an earlier request, or for none
  tooShort, ///< by a part of a reply
  timedOut,
};
constexpr const char* endingNames[] = {"",
                                       "answered",
                                       "answered with garbage",
                                       "answered with what was not meant for it",
                                       "answered with too few bytes",
                                       "timed out"};

class Trace {
public:
  /// Reads the log from its present end on. Throws std::system_error.
  explicit Trace(const char* path);

  /// What was written since the last look.
  struct News {
    Ending ending = Ending::none;
    unsigned requests = 0;
    unsigned drained = 0;             ///< stale bytes were found before a request was sent
    unsigned undecoded = 0;           ///< messages came to the shell that it cannot decode
    std::vector<std::string> strange; ///< all other lines that should not be there
  };
  News read();

private:
  void take(const std::string& line, News& news);

  kr::Descriptor _file;
  off_t _at = 0;
  std::string _rest;  // a line's beginning
  std::string _reply; // the class of the reply that is being shown
};

/// Gives back the memory of all but the end of a log on a memory file system. A log that is not there is none.
void forgetLog(const std::string& path);

} // namespace trial

#endif
