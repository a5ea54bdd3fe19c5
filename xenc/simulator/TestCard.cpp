// The test card: drawing, turning, encoding.  MakeTestCard.
#include "xenc/simulator/TestCard.h"

#include <stdio.h> // before jpeglib.h, which uses FILE and size_t without including their headers

#include <jpeglib.h>

#include <setjmp.h>
#include <time.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <vector>

namespace qz::xenc {

namespace {

constexpr int WIDTH = 1920;
constexpr int HEIGHT = 1080;
constexpr int JPEG_QUALITY = 85;

struct Colour {
    uint8_t red;
    uint8_t green;
    uint8_t blue;
};

constexpr Colour WHITE{255, 255, 255};
constexpr Colour BLACK{0, 0, 0};
const Colour BARS[] = {WHITE,         {255, 255, 0}, {0, 255, 255}, {0, 255, 0},
                       {255, 0, 255}, {255, 0, 0},   {0, 0, 255},   BLACK};

// From the top: bars, gradient, lines.
constexpr int GRADIENT_TOP = 720;
constexpr int LINES_TOP = 840;

// The letters the card needs, five bits a row, the leftmost pixel in the highest one.
struct Glyph {
    char letter;
    uint8_t rows[7];
};
constexpr int GLYPH_WIDTH = 5;
const Glyph GLYPHS[] = {
    {'0', {0x0E, 0x11, 0x13, 0x15, 0x19, 0x11, 0x0E}}, {'1', {0x04, 0x0C, 0x04, 0x04, 0x04, 0x04, 0x0E}},
    {'2', {0x0E, 0x11, 0x01, 0x02, 0x04, 0x08, 0x1F}}, {'3', {0x1F, 0x02, 0x04, 0x02, 0x01, 0x11, 0x0E}},
    {'4', {0x02, 0x06, 0x0A, 0x12, 0x1F, 0x02, 0x02}}, {'5', {0x1F, 0x10, 0x1E, 0x01, 0x01, 0x11, 0x0E}},
    {'6', {0x06, 0x08, 0x10, 0x1E, 0x11, 0x11, 0x0E}}, {'7', {0x1F, 0x01, 0x02, 0x04, 0x08, 0x08, 0x08}},
    {'8', {0x0E, 0x11, 0x11, 0x0E, 0x11, 0x11, 0x0E}}, {'9', {0x0E, 0x11, 0x11, 0x0F, 0x01, 0x02, 0x0C}},
    {':', {0x00, 0x0C, 0x0C, 0x00, 0x0C, 0x0C, 0x00}}, {'A', {0x0E, 0x11, 0x11, 0x1F, 0x11, 0x11, 0x11}},
    {'E', {0x1F, 0x10, 0x10, 0x1E, 0x10, 0x10, 0x1F}}, {'F', {0x1F, 0x10, 0x10, 0x1E, 0x10, 0x10, 0x10}},
    {'I', {0x0E, 0x04, 0x04, 0x04, 0x04, 0x04, 0x0E}}, {'M', {0x11, 0x1B, 0x15, 0x15, 0x11, 0x11, 0x11}},
    {'N', {0x11, 0x19, 0x15, 0x13, 0x11, 0x11, 0x11}}, {'O', {0x0E, 0x11, 0x11, 0x11, 0x11, 0x11, 0x0E}},
    {'R', {0x1E, 0x11, 0x11, 0x1E, 0x14, 0x12, 0x11}}, {'T', {0x1F, 0x04, 0x04, 0x04, 0x04, 0x04, 0x04}}};

// --- Drawing

class Canvas {
public:
    Canvas() : m_Pixels(static_cast<size_t>(WIDTH) * HEIGHT, BLACK) {}

    const Colour* Pixels() const { return m_Pixels.data(); }

    // What lies outside is cut off.
    void Fill(int left, int top, int width, int height, Colour colour) {
        const int right = std::min(left + width, WIDTH);
        for (int y = std::max(top, 0); y < std::min(top + height, HEIGHT); ++y)
            for (int x = std::max(left, 0); x < right; ++x)
                m_Pixels[static_cast<size_t>(y) * WIDTH + static_cast<size_t>(x)] = colour;
    }

    // Letters without a glyph leave a gap.
    void Write(int left, int top, int scale, const std::string& text) {
        for (const char letter : text) {
            for (const Glyph& glyph : GLYPHS)
                if (glyph.letter == letter)
                    Draw(left, top, scale, glyph);
            left += (GLYPH_WIDTH + 1) * scale;
        }
    }

private:
    void Draw(int left, int top, int scale, const Glyph& glyph) {
        for (const uint8_t row : glyph.rows) {
            for (int column = 0; column < GLYPH_WIDTH; ++column)
                if (row >> (GLYPH_WIDTH - 1 - column) & 1)
                    Fill(left + column * scale, top, scale, scale, BLACK);
            top += scale;
        }
    }

    std::vector<Colour> m_Pixels;
};

void DrawBackground(Canvas& canvas) {
    constexpr int BAR_WIDTH = WIDTH / 8;
    for (int bar = 0; bar < 8; ++bar)
        canvas.Fill(bar * BAR_WIDTH, 0, BAR_WIDTH, GRADIENT_TOP, BARS[bar]);

    for (int x = 0; x < WIDTH; ++x) {
        const auto grey = static_cast<uint8_t>(x * 255 / (WIDTH - 1));
        canvas.Fill(x, GRADIENT_TOP, 1, LINES_TOP - GRADIENT_TOP, {grey, grey, grey});
    }

    // From one pixel a line on the left to sixteen on the right.
    for (int x = 0, width = 1; x < WIDTH; x += 2 * width, width = 1 + 16 * x / WIDTH)
        canvas.Fill(x, LINES_TOP, width, HEIGHT - LINES_TOP, WHITE);

    // A picture that was cut or shifted has lost a side of this frame.
    constexpr int FRAME = 6;
    const Colour red = BARS[5];
    canvas.Fill(0, 0, WIDTH, FRAME, red);
    canvas.Fill(0, HEIGHT - FRAME, WIDTH, FRAME, red);
    canvas.Fill(0, 0, FRAME, HEIGHT, red);
    canvas.Fill(WIDTH - FRAME, 0, FRAME, HEIGHT, red);
}

std::string TimeOfDay() {
    const time_t now = time(nullptr);
    struct tm parts {};
    localtime_r(&now, &parts);
    char text[16];
    return std::string(text, strftime(text, sizeof(text), "%H:%M:%S", &parts));
}

void DrawText(Canvas& canvas, int degrees, uint64_t frame) {
    constexpr int SCALE = 12;
    constexpr int LEFT = 480;
    constexpr int TOP = 150;
    constexpr int MARGIN = 48;
    constexpr int LINE_HEIGHT = 120;
    canvas.Fill(LEFT - 6, TOP - 6, 972, 432, BLACK);
    canvas.Fill(LEFT, TOP, 960, 420, WHITE);
    int top = TOP + MARGIN;
    for (const std::string& line :
         {"ROTATION " + std::to_string(degrees), "FRAME " + std::to_string(frame), TimeOfDay()}) {
        canvas.Write(LEFT + MARGIN, top, SCALE, line);
        top += LINE_HEIGHT;
    }
}

// --- Turning: where in the card the turned picture's first pixel lies and how far its next pixel and next
// row are

struct Turn {
    int degrees;
    int origin;
    int pixelStep;
    int rowStep;
};

const Turn TURNS[] = {{0, 0, 1, WIDTH},
                      {90, (HEIGHT - 1) * WIDTH, -WIDTH, 1},
                      {180, HEIGHT* WIDTH - 1, -1, -WIDTH},
                      {270, WIDTH - 1, WIDTH, -1}};

// --- Encoding

struct ErrorManager {
    jpeg_error_mgr base; // the first member: the library knows only this one
    jmp_buf back;
};

// The library's own handler would end the process; throwing needs unwind tables that the library may not
// have.
void JumpBack(j_common_ptr encoder) {
    longjmp(reinterpret_cast<ErrorManager*>(encoder->err)->back, 1);
}

void KeepQuiet(j_common_ptr) {}

// No object with a destructor may live here or in what it calls: an error jumps out.
bool Encode(const Colour* card, const Turn& turn, FILE* out) {
    jpeg_compress_struct encoder{};
    ErrorManager errors{};
    encoder.err = jpeg_std_error(&errors.base);
    errors.base.error_exit = JumpBack;
    errors.base.output_message = KeepQuiet;
    if (setjmp(errors.back) != 0) {
        jpeg_destroy_compress(&encoder);
        return false;
    }
    jpeg_create_compress(&encoder);
    jpeg_stdio_dest(&encoder, out);
    const bool isUpright = turn.degrees % 180 != 0;
    encoder.image_width = isUpright ? HEIGHT : WIDTH;
    encoder.image_height = isUpright ? WIDTH : HEIGHT;
    encoder.input_components = 3;
    encoder.in_color_space = JCS_RGB;
    jpeg_set_defaults(&encoder);
    jpeg_set_quality(&encoder, JPEG_QUALITY, TRUE);
    jpeg_start_compress(&encoder, TRUE);
    while (encoder.next_scanline < encoder.image_height) {
        JSAMPLE row[WIDTH * 3];
        int source = turn.origin + turn.rowStep * static_cast<int>(encoder.next_scanline);
        for (JDIMENSION x = 0; x < encoder.image_width; ++x, source += turn.pixelStep)
            memcpy(row + x * 3, card + source, 3);
        JSAMPROW rows[] = {row};
        jpeg_write_scanlines(&encoder, rows, 1);
    }
    jpeg_finish_compress(&encoder);
    jpeg_destroy_compress(&encoder);
    return true;
}

} // namespace

bool MakeTestCard(int degrees, uint64_t frame, std::string& jpeg) {
    static_assert(sizeof(Colour) == 3, "pixels are copied as they are");
    const Turn* turn = std::find_if(std::begin(TURNS), std::end(TURNS),
                                    [degrees](const Turn& one) { return one.degrees == degrees; });
    if (turn == std::end(TURNS))
        return false;
    Canvas canvas;
    DrawBackground(canvas);
    DrawText(canvas, degrees, frame);

    // A stream in memory rather than the library's memory destination: the type of that one's size differs
    // between releases of the library.
    char* bytes = nullptr;
    size_t size = 0;
    FILE* out = open_memstream(&bytes, &size);
    if (!out)
        return false;
    const bool encoded = Encode(canvas.Pixels(), *turn, out);
    const bool complete = fclose(out) == 0 && encoded;
    if (complete)
        jpeg.assign(bytes, size);
    free(bytes);
    return complete;
}

} // namespace qz::xenc
