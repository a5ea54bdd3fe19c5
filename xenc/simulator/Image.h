#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qz::xenc {

// A picture in memory, row by row from the top left.
struct Image {
    int width = 0;
    int height = 0;
    int channels = 0;            // bytes of a pixel: 1 grey, 3 red-green-blue, 4 as in print
    std::vector<uint8_t> pixels; // width * height * channels
};

// Turned clockwise by 0, 90, 180 or 270 degrees.
Image Turned(const Image& image, int degrees);

// From and to JPEG, in whatever colours the file has.  False with the reason; a file that can only be read with a
// warning counts as damaged.
bool Decode(const std::string& jpeg, Image& image, std::string& reason);
bool Encode(const Image& image, std::string& jpeg, std::string& reason);

} // namespace qz::xenc
