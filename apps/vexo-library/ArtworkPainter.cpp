#include "ArtworkPainter.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "platform/graphics/Canvas.h"
#include "platform/graphics/PngEncoder.h"

namespace vexo::library {
namespace {

using graphics::Color;
using graphics::Point;
using graphics::Rect;

// `hue` in turns; full saturation scaled by `saturation`, brightness `value`.
Color hsv(double hue, double saturation, double value, double alpha = 1) {
    hue = (hue - std::floor(hue)) * 6;
    const double c = value * saturation;
    const double x = c * (1 - std::abs(std::fmod(hue, 2.0) - 1));
    const double m = value - c;
    double r = 0, g = 0, b = 0;
    switch (static_cast<int>(hue)) {
    case 0:
        r = c;
        g = x;
        break;
    case 1:
        r = x;
        g = c;
        break;
    case 2:
        g = c;
        b = x;
        break;
    case 3:
        g = x;
        b = c;
        break;
    case 4:
        r = x;
        b = c;
        break;
    default:
        r = c;
        b = x;
        break;
    }
    return {r + m, g + m, b + m, alpha};
}

} // namespace

std::optional<std::vector<std::uint8_t>> ArtworkPainter::paint(int width, int height, std::uint32_t seed) {
    graphics::Canvas canvas(width, height);
    const double w = width;
    const double h = height;
    const double hue = static_cast<double>(seed % 360) / 360.0;
    const double accent = hue + 0.35 + static_cast<double>((seed >> 9) % 30) / 100.0;

    canvas.fillRect({0, 0, w, h},
                    graphics::LinearGradient{{0, 0}, {w, h}, hsv(hue, 0.75, 0.95), hsv(accent, 0.8, 0.35)});

    // Translucent bands across the picture, as many as the seed says.
    const int bands = 2 + static_cast<int>((seed >> 4) % 4);
    for (int i = 0; i < bands; ++i) {
        const double offset = (static_cast<double>(i) + 0.5) / bands * (w + h) - h;
        const double thickness = (w + h) / (bands * 4.0);
        const std::array<Point, 4> band = {Point{offset, 0}, Point{offset + thickness, 0},
                                           Point{offset + thickness + h, h}, Point{offset + h, h}};
        canvas.fillPolygon(band, hsv(accent + 0.1 * i, 0.5, 1.0, 0.18));
    }

    // A record in the middle, its label in the accent colour.
    const double side = std::min(w, h);
    const Rect disc{(w - side * 0.8) / 2, (h - side * 0.8) / 2, side * 0.8, side * 0.8};
    canvas.fillOval(disc, Color::gray(0.08, 0.92));
    for (const double groove : {0.06, 0.11, 0.16, 0.21})
        canvas.strokeOval(disc.inset(side * groove), std::max(0.5, side / 300), Color::gray(0.3, 0.6));
    const Rect label = disc.inset(side * 0.26);
    canvas.fillOval(
        label, graphics::RadialGradient{label.center(), label.width / 2, hsv(accent, 0.6, 1.0), hsv(hue, 0.9, 0.7)});
    canvas.fillOval(label.inset(label.width * 0.44), Color::gray(0.05));
    return graphics::PngEncoder::encode(canvas.toImage());
}

} // namespace vexo::library
