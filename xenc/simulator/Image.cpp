// Turning pictures, and libjpeg.  Turned, Decode, Encode.
#include "xenc/simulator/Image.h"

#include <stdio.h> // before jpeglib.h, which uses FILE and size_t without including their headers

#include <jpeglib.h>

#include <setjmp.h>

#include <cstdlib>
#include <cstring>
#include <utility>

namespace qz::xenc {

namespace {

constexpr int JPEG_QUALITY = 85;

struct ErrorManager {
    jpeg_error_mgr base; // the first member: the library knows only this one
    jmp_buf back;
    char message[JMSG_LENGTH_MAX];
};

// The library's own handler would end the process; throwing needs unwind tables that the library may not have.
void JumpBack(j_common_ptr jpeg) {
    auto* const errors = reinterpret_cast<ErrorManager*>(jpeg->err);
    errors->base.format_message(jpeg, errors->message);
    longjmp(errors->back, 1);
}

// Warnings have the level -1; the others are only for who watches the library at work.
void RefuseWarnings(j_common_ptr jpeg, int level) {
    if (level < 0)
        JumpBack(jpeg);
}

jpeg_error_mgr* Prepare(ErrorManager& errors) {
    jpeg_std_error(&errors.base);
    errors.base.error_exit = JumpBack;
    errors.base.emit_message = RefuseWarnings;
    return &errors.base;
}

size_t RowLength(const Image& image) {
    return static_cast<size_t>(image.width) * static_cast<size_t>(image.channels);
}

// Those that libjpeg chooses itself for a picture it has read.
J_COLOR_SPACE ColourSpace(int channels) {
    switch (channels) {
    case 1:
        return JCS_GRAYSCALE;
    case 3:
        return JCS_RGB;
    case 4:
        return JCS_CMYK;
    default:
        return JCS_UNKNOWN;
    }
}

// No object with a destructor may live here, where an error jumps out.
bool Read(jpeg_decompress_struct& decoder, ErrorManager& errors, const std::string& jpeg, Image& image) {
    if (setjmp(errors.back) != 0)
        return false;
    jpeg_create_decompress(&decoder);
    jpeg_mem_src(&decoder, reinterpret_cast<const unsigned char*>(jpeg.data()), jpeg.size());
    jpeg_read_header(&decoder, TRUE);
    jpeg_start_decompress(&decoder);
    image.width = static_cast<int>(decoder.output_width);
    image.height = static_cast<int>(decoder.output_height);
    image.channels = decoder.output_components;
    image.pixels.resize(RowLength(image) * decoder.output_height);
    while (decoder.output_scanline < decoder.output_height) {
        JSAMPROW row = &image.pixels[RowLength(image) * decoder.output_scanline];
        jpeg_read_scanlines(&decoder, &row, 1);
    }
    jpeg_finish_decompress(&decoder);
    return true;
}

// As Read.
bool Write(jpeg_compress_struct& encoder, ErrorManager& errors, const Image& image, FILE* out) {
    if (setjmp(errors.back) != 0)
        return false;
    jpeg_create_compress(&encoder);
    jpeg_stdio_dest(&encoder, out);
    encoder.image_width = static_cast<JDIMENSION>(image.width);
    encoder.image_height = static_cast<JDIMENSION>(image.height);
    encoder.input_components = image.channels;
    encoder.in_color_space = ColourSpace(image.channels);
    jpeg_set_defaults(&encoder);
    jpeg_set_quality(&encoder, JPEG_QUALITY, TRUE);
    jpeg_start_compress(&encoder, TRUE);
    while (encoder.next_scanline < encoder.image_height) {
        // The library only reads the row.
        JSAMPROW row = const_cast<JSAMPROW>(&image.pixels[RowLength(image) * encoder.next_scanline]);
        jpeg_write_scanlines(&encoder, &row, 1);
    }
    jpeg_finish_compress(&encoder);
    return true;
}

} // namespace

Image Turned(const Image& image, int degrees) {
    const std::ptrdiff_t width = image.width;
    const std::ptrdiff_t height = image.height;
    // Where the turned picture's first pixel lies, and how far from there its next pixel and its next row.
    std::ptrdiff_t first = 0;
    std::ptrdiff_t pixelStep = 1;
    std::ptrdiff_t rowStep = width;
    if (degrees == 90) {
        first = (height - 1) * width;
        pixelStep = -width;
        rowStep = 1;
    } else if (degrees == 180) {
        first = height * width - 1;
        pixelStep = -1;
        rowStep = -width;
    } else if (degrees == 270) {
        first = width - 1;
        pixelStep = width;
        rowStep = -1;
    }
    Image turned = image;
    if (degrees % 180 != 0)
        std::swap(turned.width, turned.height);
    uint8_t* target = turned.pixels.data();
    for (int y = 0; y < turned.height; ++y) {
        for (int x = 0; x < turned.width; ++x, target += image.channels)
            memcpy(target, &image.pixels[(first + y * rowStep + x * pixelStep) * image.channels], image.channels);
    }
    return turned;
}

bool Decode(const std::string& jpeg, Image& image, std::string& reason) {
    jpeg_decompress_struct decoder{};
    ErrorManager errors{};
    decoder.err = Prepare(errors);
    const bool decoded = Read(decoder, errors, jpeg, image);
    jpeg_destroy_decompress(&decoder);
    reason = errors.message;
    return decoded;
}

bool Encode(const Image& image, std::string& jpeg, std::string& reason) {
    // A stream in memory rather than the library's memory destination: the type of that one's size differs between
    // releases of the library.
    char* bytes = nullptr;
    size_t size = 0;
    FILE* const out = open_memstream(&bytes, &size);
    if (!out) {
        reason = "out of memory";
        return false;
    }
    jpeg_compress_struct encoder{};
    ErrorManager errors{};
    encoder.err = Prepare(errors);
    const bool encoded = Write(encoder, errors, image, out);
    jpeg_destroy_compress(&encoder);
    fclose(out); // the encoder has flushed it
    reason = errors.message;
    if (encoded)
        jpeg.assign(bytes, size);
    free(bytes);
    return encoded;
}

} // namespace qz::xenc
