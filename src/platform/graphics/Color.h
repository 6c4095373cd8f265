#pragma once

// An RGBA colour with components from 0 to 1, not premultiplied.
namespace vexo::graphics {

struct Color {
    double red = 0;
    double green = 0;
    double blue = 0;
    double alpha = 1;

    // The colour with its alpha replaced; handy for the translucent variants of a palette.
    [[nodiscard]] constexpr Color withAlpha(double newAlpha) const { return {red, green, blue, newAlpha}; }

    static constexpr Color gray(double white, double alpha = 1) { return {white, white, white, alpha}; }
    static constexpr Color clear() { return {0, 0, 0, 0}; }

    friend constexpr bool operator==(const Color&, const Color&) = default;
};

} // namespace vexo::graphics
