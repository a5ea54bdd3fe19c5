// The test card.  DrawTestCard.
#include "xenc/simulator/TestCard.h"

#include <time.h>

#include <algorithm>
#include <array>
#include <string>
#include <utility>
#include <vector>

namespace qz::xenc {

namespace {

constexpr int WIDTH = 1920;
constexpr int HEIGHT = 1080;

using Colour = std::array<uint8_t, 3>;

constexpr Colour WHITE{255, 255, 255};
constexpr Colour BLACK{0, 0, 0};
constexpr Colour RED{255, 0, 0};
constexpr Colour BARS[] = {WHITE, {255, 255, 0}, {0, 255, 255}, {0, 255, 0}, {255, 0, 255}, RED, {0, 0, 255}, BLACK};

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

// Black at first.
class Canvas {
public:
    Image Release() { return std::move(m_Image); }

    // What lies outside is cut off.
    void Fill(int left, int top, int width, int height, Colour colour) {
        const int right = std::min(left + width, WIDTH);
        for (int y = std::max(top, 0); y < std::min(top + height, HEIGHT); ++y)
            for (int x = std::max(left, 0); x < right; ++x)
                std::copy(colour.begin(), colour.end(), &m_Image.pixels[(y * WIDTH + x) * 3]);
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

    Image m_Image{WIDTH, HEIGHT, 3, std::vector<uint8_t>(WIDTH* HEIGHT * 3)};
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
    canvas.Fill(0, 0, WIDTH, FRAME, RED);
    canvas.Fill(0, HEIGHT - FRAME, WIDTH, FRAME, RED);
    canvas.Fill(0, 0, FRAME, HEIGHT, RED);
    canvas.Fill(WIDTH - FRAME, 0, FRAME, HEIGHT, RED);
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

} // namespace

Image DrawTestCard(int degrees, uint64_t frame) {
    Canvas canvas;
    DrawBackground(canvas);
    DrawText(canvas, degrees, frame);
    return canvas.Release();
}

} // namespace qz::xenc
