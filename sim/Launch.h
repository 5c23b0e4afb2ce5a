// Finding and starting programs, also one that a mount of the board hides.
#ifndef TEV_SIM_LAUNCH_H
#define TEV_SIM_LAUNCH_H

#include "platform/Descriptor.h"

#include <string>
#include <vector>

namespace sim {

struct Program {
  std::string path;
  kr::Descriptor file; // stays valid if a mount hides `path`
  int error = 0;       // errno if there is no file
};

/// Looks up `name` as a shell does: as a path if it has a slash, otherwise in PATH.
[[nodiscard]] Program findProgram(const std::string& name);

/// Replaces this process by the program. A failure is reported on standard error and ends the process with status 126
/// or 127.
[[noreturn]] void startProgram(const Program& program, const std::vector<std::string>& words);

/// Returns the directory of the running executable. Throws std::runtime_error.
std::string programDirectory();

/// Returns the path of the working directory, or an empty string if it has none.
std::string currentDirectory();

/// Changes to the directory `path`, so that the process sees present mounts there. If they hide the path, the process
/// keeps its working directory, and relative names stay valid.
void enterDirectory(const std::string& path);

/// Redirects standard input and output to /dev/null, so that only the command has them open.
void detachStandardStreams();

} // namespace sim

#endif
