// The picture that the board's video input always shows.
#ifndef TEV_SIM_COLOURBARS_H
#define TEV_SIM_COLOURBARS_H

#include <string>

namespace sim {

/// Stores the picture in this size as a JPEG file, which appears at `path` when it is complete. Returns 0 or an errno.
[[nodiscard]] int storeColourBars(const std::string& path, unsigned width, unsigned height);

} // namespace sim

#endif
