// Private directories and files in a mount namespace.
#ifndef TEV_SIM_LAYOUT_H
#define TEV_SIM_LAYOUT_H

#include <string>

namespace sim {

/// Makes a private, empty memory file system appear at `path`, with the other entries beside it as before. Where `path`
/// does not exist on the machine, nothing is created there: its nearest existing directory is covered by a memory file
/// system into which that directory's own entries are bound again. `mode` as for mkdir(2). Throws std::runtime_error.
void mountPrivateDirectory(const std::string& path, unsigned mode);

/// Mounts an empty memory file system of this mode over a directory that exists. Throws std::runtime_error.
void mountMemory(const std::string& path, unsigned mode);

/// Gives /tmp an empty memory file system. Where `program`, a whole path, lies in a directory below /tmp, as in a build
/// tree there, that directory is bound again: what runs on the board is found under its name. Throws
/// std::runtime_error.
void coverTmp(const std::string& program, bool readOnly);

/// Creates the directories on the way to `path`, and `path`. Throws std::runtime_error.
void makeDirectories(const std::string& path);

} // namespace sim

#endif
