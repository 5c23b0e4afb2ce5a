// Places of the stand-in board that come and go while the shell runs.
#ifndef TEV_TRIAL_PLACE_H
#define TEV_TRIAL_PLACE_H

#include <string>
#include <sys/types.h>

namespace trial {

/// A folder of nodes or tools.
struct Place {
  enum class State {
    present,
    gone,  ///< the folder is empty
    stuck, ///< the node reads as zero bytes and takes none
  };

  const char* folder;
  const char* node = nullptr; ///< the file in the folder that can be stuck; null for none
  State state = State::present;

  /// Changes the place on the boards that these processes live on; from or to `present` only. Throws
  /// std::runtime_error.
  void become(State next, std::initializer_list<pid_t> boards);
};

} // namespace trial

#endif
