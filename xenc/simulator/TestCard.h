#pragma once

#include <cstdint>

#include "xenc/simulator/Image.h"

namespace qz::xenc {

// The simulator's own picture, 1920 x 1080 and upright: colour bars, a gradient, lines, and in a white box the
// rotation, the frame number and the time of day.
Image DrawTestCard(int degrees, uint64_t frame);

} // namespace qz::xenc
