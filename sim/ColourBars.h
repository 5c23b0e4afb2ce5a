// The picture at the board's video input: colour bars.
#ifndef TEV_SIM_COLOURBARS_H
#define TEV_SIM_COLOURBARS_H

#include <string>

namespace sim {

/// Stores the picture as a JPEG file of this size in pixels. The file appears at `path` when complete. Returns 0 or an
/// errno.
[[nodiscard]] int storeColourBars(const std::string& path, unsigned width, unsigned height);

} // namespace sim

#endif
