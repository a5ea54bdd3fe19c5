// The JPEG header probe.  Tested in tests/common/ImageTest.cpp.
#include "common/HelperImage.h"

#include <fcntl.h>

#include <csetjmp>
#include <cstdio>

#include <jpeglib.h>

#include "common/FileLogger.h"
#include "common/Owners.h"

namespace qz::common {

namespace {

// libjpeg's error manager, and where its fatal error goes instead of exit().
struct ErrorManager {
    jpeg_error_mgr base; // first, so that libjpeg's pointer to it is one to the whole
    jmp_buf back;
};

// A jump, not an exception: libjpeg's C frames lie between, and on 32-bit ARM they cannot be unwound.
[[noreturn]] void LeaveByJump(j_common_ptr common) {
    longjmp(reinterpret_cast<ErrorManager*>(common->err)->back, 1);
}

// Warnings of a damaged file would go to standard error.
void DropMessage(j_common_ptr) {}

} // namespace

bool HelperImage::GetJPEGSize(const char* path, int& width, int& height) {
    if (!path)
        return false;
    // Non-blocking, so that a FIFO in the picture's place is an empty file.
    UniqueFd fd(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    const FilePtr file(fd.Valid() ? fdopen(fd.Get(), "rb") : nullptr);
    if (file)
        (void)fd.Release(); // the stream's now
    else {
        QZ_LOG(ERR, path << " Open Error");
        return false;
    }

    jpeg_decompress_struct info{};
    ErrorManager errors{};
    info.err = jpeg_std_error(&errors.base);
    errors.base.error_exit = LeaveByJump;
    errors.base.output_message = DropMessage;

    // No object with a destructor comes into being between here and the library calls.
    if (setjmp(errors.back) != 0) { // NOLINT(cert-err52-cpp): see LeaveByJump
        char message[JMSG_LENGTH_MAX] = {};
        info.err->format_message(reinterpret_cast<j_common_ptr>(&info), message);
        QZ_LOG(ERR, message);
        jpeg_destroy_decompress(&info);
        return false;
    }
    // The macro passes the interface version of the header it was compiled with.
    jpeg_create_decompress(&info);
    jpeg_stdio_src(&info, file.get());
    if (jpeg_read_header(&info, TRUE) == JPEG_HEADER_OK) {
        width = static_cast<int>(info.image_width);
        height = static_cast<int>(info.image_height);
    }
    jpeg_destroy_decompress(&info);
    return true;
}

bool HelperImage::Resizing(const char*, int&, int&) {
    return true;
}

} // namespace qz::common
