// Private directories in a mount namespace.
#ifndef TEV_SIM_LAYOUT_H
#define TEV_SIM_LAYOUT_H

#include <string>

namespace sim {

/// Mounts a private, empty memory file system at `path`; its siblings stay visible. A `path` that does not exist is not
/// created on the machine: a memory file system covers the nearest existing directory above it, and that directory's
/// entries are bound into it. `mode` as for mkdir(2). Throws std::runtime_error.
void mountPrivateDirectory(const std::string& path, unsigned mode);

/// Mounts an empty memory file system of this mode over an existing directory. Throws std::runtime_error.
void mountMemory(const std::string& path, unsigned mode);

/// Mounts an empty memory file system over /tmp. If `program`, an absolute path, is in a directory below /tmp (a build
/// tree, for instance), that directory is bound into it, so that the paths of programs stay valid. Throws
/// std::runtime_error.
void coverTmp(const std::string& program, bool readOnly);

/// Creates the directory `path` and its missing parents. Throws std::runtime_error.
void makeDirectories(const std::string& path);

} // namespace sim

#endif
