#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "platform/graphics/Color.h"
#include "platform/graphics/Fill.h"
#include "platform/graphics/Image.h"
#include "platform/graphics/Rect.h"

typedef struct _cairo cairo_t;
typedef struct _cairo_surface cairo_surface_t;

// A bitmap drawing context on Cairo, at scale 1 (one point is one pixel), starting fully
// transparent. Shapes are antialiased; everything drawn is clipped by the current clip.
// A canvas belongs to one thread at a time.
namespace vexo::graphics {

class Canvas {
public:
    enum class LineCap { Butt, Round };

    // A transparent canvas of `width` x `height` pixels. Throws std::invalid_argument
    // unless both are between 1 and kMaxSide.
    Canvas(int width, int height);
    ~Canvas();
    Canvas(const Canvas&) = delete;
    Canvas& operator=(const Canvas&) = delete;

    static constexpr int kMaxSide = 8192;

    [[nodiscard]] int width() const { return m_width; }
    [[nodiscard]] int height() const { return m_height; }

    void fillRect(const Rect& rect, const Fill& fill);
    void fillRoundedRect(const Rect& rect, double cornerRadius, const Fill& fill);

    // Fills the oval inscribed in `rect`.
    void fillOval(const Rect& rect, const Fill& fill);

    // Strokes the oval inscribed in `rect`, the line centred on its outline.
    void strokeOval(const Rect& rect, double lineWidth, const Color& color);

    // Strokes a circular arc clockwise (on screen) from `startAngle` to `endAngle`, in
    // radians from the positive x axis.
    void strokeArc(Point center, double radius, double startAngle, double endAngle, double lineWidth,
                   const Color& color, LineCap cap = LineCap::Butt);

    // Fills the closed polygon through `points` (non-zero winding).
    void fillPolygon(std::span<const Point> points, const Fill& fill);

    // Strokes the open polyline through `points`.
    void strokePolyline(std::span<const Point> points, double lineWidth, const Color& color,
                        LineCap cap = LineCap::Butt);

    // Narrows the clip to the oval inscribed in `rect` (intersected with any clip already set).
    void clipToOval(const Rect& rect);
    void resetClip();

    // Draws `image` scaled to fill `rect` exactly, ignoring its aspect ratio; downscaling
    // averages, upscaling interpolates, and the edges stay sharp.
    void drawImage(const Image& image, const Rect& rect);

    // Copies the pixels drawn so far.
    [[nodiscard]] Image toImage() const;

    // The canvas as a PNG file (8-bit RGBA); nothing only if encoding fails.
    [[nodiscard]] std::optional<std::vector<std::uint8_t>> encodePng() const;

private:
    void applyFill(const Fill& fill);

    int m_width;
    int m_height;
    cairo_surface_t* m_surface = nullptr;
    cairo_t* m_cairo = nullptr;
};

} // namespace vexo::graphics
