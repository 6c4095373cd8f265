#pragma once

// A rectangle in canvas points: origin at the top left, y grows downwards.
namespace vexo::graphics {

struct Point {
    double x = 0;
    double y = 0;
    friend constexpr bool operator==(const Point&, const Point&) = default;
};

// A size in whole pixels; zero in either direction means "no preference".
struct Size {
    int width = 0;
    int height = 0;
    friend constexpr bool operator==(const Size&, const Size&) = default;
};

struct Rect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;

    // Shrinks the rectangle by `amount` on every side (grows it for a negative amount),
    // as the host platform's rectangle inset does; the size never drops below zero.
    [[nodiscard]] constexpr Rect inset(double amount) const {
        double w = width - 2 * amount;
        double h = height - 2 * amount;
        return {x + amount, y + amount, w > 0 ? w : 0, h > 0 ? h : 0};
    }

    [[nodiscard]] constexpr Point center() const { return {x + width / 2, y + height / 2}; }

    friend constexpr bool operator==(const Rect&, const Rect&) = default;
};

} // namespace vexo::graphics
