#pragma once

#include "platform/graphics/Color.h"

// Colours of interface objects, and the named colours the screens use.
namespace vexo::watchkit {

using Color = graphics::Color;

namespace colors {

// The host platform's whiteColor and lightGrayColor (white 2/3).
constexpr Color white() {
    return Color::gray(1.0);
}
constexpr Color lightGray() {
    return Color::gray(2.0 / 3.0);
}
constexpr Color darkGray() {
    return Color::gray(1.0 / 3.0);
}
constexpr Color black() {
    return Color::gray(0.0);
}

// The application's orange: the selection and tint colour of switches, sliders and
// selected rows.
constexpr Color selection() {
    return {0.918, 0.545, 0.145, 1.0};
}

} // namespace colors

} // namespace vexo::watchkit
