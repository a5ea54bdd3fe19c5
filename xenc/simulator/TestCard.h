#pragma once

#include <cstdint>
#include <string>

namespace qz::xenc {

// The simulator's own picture as JPEG: colour bars, a gradient, lines, and in a white box the rotation, the
// frame number and the time of day.  Drawn at 1920 x 1080 and turned clockwise by 0, 90, 180 or 270 degrees,
// so 90 and 270 give 1080 x 1920.  False when it cannot be encoded.
bool MakeTestCard(int degrees, uint64_t frame, std::string& jpeg);

} // namespace qz::xenc
