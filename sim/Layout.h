// Private folders and files in a mount namespace.
#ifndef TEV_SIM_LAYOUT_H
#define TEV_SIM_LAYOUT_H

#include <string>

namespace sim {

/// Makes a private, empty memory file system appear at `path`, with the other entries beside it as before. Where `path`
/// does not exist on the machine, nothing is created there: its nearest existing folder is covered by a memory file
/// system into which that folder's own entries are bound again. `mode` as for mkdir(2). Throws std::runtime_error.
void layFolder(const std::string& path, unsigned mode);

/// Mounts an empty memory file system of this mode over a folder that exists. Throws std::runtime_error.
void mountMemory(const std::string& path, unsigned mode);

/// Gives /tmp an empty memory file system. Where `program`, a whole path, lies in a folder below /tmp, as in a build
/// tree there, that folder is bound again: what runs on the board is found under its name. Throws std::runtime_error.
void coverTmp(const std::string& program, bool readOnly);

/// Creates the folders on the way to `path`, and `path`. Throws std::runtime_error.
void makeFolders(const std::string& path);

} // namespace sim

#endif
