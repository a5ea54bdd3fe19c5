#pragma once

namespace qz::common {

// Pictures.  Static, no state, any thread.
class HelperImage {
public:
    // The dimensions in pixels of the JPEG file, from its header alone.  False, with both outputs untouched and the
    // reason logged, when the file cannot be opened or is no JPEG; a null path is false without a line.
    static bool GetJPEGSize(const char* path, int& width, int& height);

    // Does nothing; always true.
    static bool Resizing(const char* path, int& width, int& height);
};

} // namespace qz::common
