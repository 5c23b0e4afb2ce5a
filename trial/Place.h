// Places of the stand-in board that come and go while the shell runs.
#ifndef TEV_TRIAL_PLACE_H
#define TEV_TRIAL_PLACE_H

#include "sim/SystemError.h"

#include <fcntl.h>
#include <initializer_list>
#include <sched.h>
#include <stdexcept>
#include <string>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

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
  void become(State next, std::initializer_list<pid_t> boards) {
    const State other = next == State::present ? state : next;
    const std::string path = other == State::gone ? folder : std::string(folder) + "/" + node;
    for (const pid_t board : boards) {
      const std::string space = "/proc/" + std::to_string(board) + "/ns/mnt";
      const pid_t child = sim::check(fork(), "fork");
      if (child == 0) {
        if (setns(open(space.c_str(), O_RDONLY | O_CLOEXEC), CLONE_NEWNS) != 0) _exit(errno);
        const int result = next == State::present ? umount2(path.c_str(), MNT_DETACH)
                           : next == State::gone  ? mount("gone", path.c_str(), "tmpfs", MS_RDONLY, "size=4k")
                                                  : mount("/dev/full", path.c_str(), nullptr, MS_BIND, nullptr);
        _exit(result == 0 ? 0 : errno);
      }
      int status = 0;
      sim::check(waitpid(child, &status, 0), "waitpid");
      if (status != 0) throw std::runtime_error("cannot change " + path + ": " + std::to_string(status));
    }
    state = next;
  }
};

} // namespace trial

#endif
