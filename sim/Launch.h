// Finding and starting the command, also when a mount of the board hides it.
#ifndef TEV_SIM_LAUNCH_H
#define TEV_SIM_LAUNCH_H

#include "platform/Descriptor.h"

#include <string>
#include <vector>

namespace sim {

struct Program {
  std::string path;
  kr::Descriptor file; // stays valid when `path` does not
  int error = 0;       // why there is no file
};

/// Looks `name` up like a shell does: as a path if it has a slash, else in PATH.
[[nodiscard]] Program findProgram(const std::string& name);

/// Becomes the program. Does not return: a failure is told and ends the process with status 126 or 127.
[[noreturn]] void startProgram(const Program& program, const std::vector<std::string>& words);

/// The directory of the running executable. Throws std::runtime_error.
std::string programDirectory();

/// The working directory's path, empty if it has none.
std::string currentDirectory();

/// Enters the working directory by its path again, so that the process stands on the present mounts. Where they hide
/// the path the process stays where it is, and relative names go on working.
void enterDirectory(const std::string& path);

/// Gives up standard input and output, so that only the command holds them.
void detachStandardStreams();

} // namespace sim

#endif
