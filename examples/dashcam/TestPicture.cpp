#include "examples/dashcam/TestPicture.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>

#include "Tolvex/Util/UtilTime.h"

namespace Dashcam {
namespace {

struct Color
{
    std::uint8_t y, u, v;
};

constexpr Color grass = {96, 108, 112}, darkGrass = {86, 110, 113};
constexpr Color asphalt = {74, 130, 127}, darkAsphalt = {68, 130, 127};
constexpr Color white = {215, 127, 129}, black = {22, 128, 128}, hills = {112, 134, 120};
constexpr Color carBody = {48, 132, 126}, window = {92, 136, 122}, tailLight = {92, 100, 210};

/// Fills a rectangle, as far as it is in the picture. Colours have half the resolution.
void Fill(AVFrame& picture, double left, double top, double width, double height, Color color)
{
    const auto even = [](double value, int most) {
        return static_cast<int>(std::clamp(value, 0.0, static_cast<double>(most))) & ~1;
    };
    const int x = even(left, picture.width);
    const int length = even(left + width, picture.width) - x;
    const int end = even(top + height, picture.height);
    const auto set = [&picture](int plane, int from, int row, int count, std::uint8_t value) {
        std::uint8_t* const line =
            picture.data[plane] + std::ptrdiff_t{row} * picture.linesize[plane];
        std::fill_n(line + from, std::max(0, count), value);
    };
    for (int row = even(top, picture.height); row < end; ++row) {
        set(0, x, row, length, color.y);
        set(1, x / 2, row / 2, length / 2, color.u);
        set(2, x / 2, row / 2, length / 2, color.v);
    }
}

void DrawSky(AVFrame& picture, double horizon, double seconds)
{
    for (int row = 0; row < horizon; row += 2) {
        const auto light = static_cast<std::uint8_t>(140 + 70 * row / horizon);
        Fill(picture, 0, row, picture.width, 2, {light, 142, 116});
    }
    for (int x = 0; x < picture.width; x += 2) {
        const double turn = x * 6.0 / picture.width + seconds * 0.02;
        const double height = 0.5 + 0.3 * std::sin(turn) + 0.2 * std::sin(turn * 2.7 + 1.0);
        Fill(picture, x, horizon * (1.0 - 0.22 * height), 2, horizon, hills);
    }
}

void DrawRoad(AVFrame& picture, double horizon, double seconds)
{
    for (int row = static_cast<int>(horizon); row < picture.height; row += 2) {
        const double near =
            (row - horizon + 1.0) / (picture.height - horizon);  // 0: at the horizon
        const double distance = 1.0 / near + seconds * 6.0;
        const bool odd = std::fmod(distance, 2.0) < 1.0;
        const double bend = 0.18 * std::sin(seconds * 0.25) * (1.0 - near) * (1.0 - near);
        const double middle = picture.width * (0.5 + bend);
        const double half = picture.width * 0.55 * near;
        const double line = half * 0.04;
        Fill(picture, 0, row, picture.width, 2, odd ? grass : darkGrass);
        Fill(picture, middle - half, row, 2.0 * half, 2, odd ? asphalt : darkAsphalt);
        Fill(picture, middle - half * 0.94, row, line, 2, white);
        Fill(picture, middle + half * 0.90, row, line, 2, white);
        if (odd) {
            Fill(picture, middle - line / 2.0, row, line, 2, white);
        }
    }
}

void DrawCarAhead(AVFrame& picture, double horizon, double seconds)
{
    const double near = 0.20 + 0.08 * std::sin(seconds * 0.4);
    const double size = picture.width * 0.42 * near;
    const double bend = 0.18 * std::sin(seconds * 0.25) * (1.0 - near) * (1.0 - near);
    const double left = picture.width * (0.5 + bend + 0.27 * near) - size / 2.0;
    const double top = horizon + (picture.height - horizon) * near - size * 0.72;
    Fill(picture, left + size * 0.10, top, size * 0.80, size * 0.35, carBody);
    Fill(picture, left + size * 0.17, top + size * 0.07, size * 0.66, size * 0.22, window);
    Fill(picture, left, top + size * 0.30, size, size * 0.36, carBody);
    Fill(picture, left + size * 0.04, top + size * 0.36, size * 0.16, size * 0.10, tailLight);
    Fill(picture, left + size * 0.80, top + size * 0.36, size * 0.16, size * 0.10, tailLight);
    Fill(picture, left + size * 0.06, top + size * 0.66, size * 0.18, size * 0.08, black);
    Fill(picture, left + size * 0.76, top + size * 0.66, size * 0.18, size * 0.08, black);
}

/// A digit of seven segments: the bits are the horizontal ones from the top, then the left ones,
/// then the right ones.
void DrawDigit(AVFrame& picture, int digit, double x, double y, double size)
{
    constexpr int segments[] = {0175, 0140, 067, 0147, 0152, 0117, 0137, 0141, 0177, 0157};
    const int lit = segments[digit];
    const double stroke = std::max(2.0, size / 7.0);
    for (int i = 0; i < 3; ++i) {
        if ((lit >> i & 1) != 0) {
            Fill(picture, x, y + i * (size - stroke) / 2.0, size / 2.0, stroke, white);
        }
    }
    for (int i = 0; i < 4; ++i) {
        if ((lit >> (i + 3) & 1) != 0) {
            Fill(picture, i < 2 ? x : x + size / 2.0 - stroke, y + i % 2 * size / 2.0, stroke,
                 size / 2.0, white);
        }
    }
}

void DrawTime(AVFrame& picture, const std::string& text)
{
    const double size = std::max(12.0, picture.height / 18.0);
    const double margin = size * 0.8;  // also where the text begins, from the left and the top
    const double width = static_cast<double>(text.size()) * size * 0.75;
    Fill(picture, margin * 0.5, margin * 0.5, width + margin * 0.75, size + margin, black);
    double x = margin;
    for (const char character : text) {
        if (character >= '0' && character <= '9') {
            DrawDigit(picture, character - '0', x, margin, size);
        } else {
            const double dot = std::max(2.0, size / 6.0);
            Fill(picture, x + size * 0.2, margin + size * 0.25, dot, dot, white);
            Fill(picture, x + size * 0.2, margin + size * 0.7, dot, dot, white);
        }
        x += size * 0.75;
    }
}

}  // namespace

void DrawTestPicture(AVFrame& picture, double seconds, std::time_t now)
{
    const double horizon = static_cast<int>(picture.height * 0.42) & ~1;
    DrawSky(picture, horizon, seconds);
    DrawRoad(picture, horizon, seconds);
    DrawCarAhead(picture, horizon, seconds);
    DrawTime(picture, Tolvex::Util::Date(now, "%H:%M:%S"));
}

}  // namespace Dashcam
