#pragma once

#include <variant>

#include "platform/graphics/Color.h"
#include "platform/graphics/Rect.h"

// What the inside of a shape is painted with: a flat colour or a two-colour gradient.
namespace vexo::graphics {

// Blends from `from` at `start` to `to` at `end`, constant beyond both ends.
struct LinearGradient {
    Point start;
    Point end;
    Color from;
    Color to;
};

// Blends from `inner` at `center` to `outer` at `radius`, constant beyond it.
struct RadialGradient {
    Point center;
    double radius = 0;
    Color inner;
    Color outer;
};

using Fill = std::variant<Color, LinearGradient, RadialGradient>;

} // namespace vexo::graphics
