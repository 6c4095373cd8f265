#include "platform/graphics/Canvas.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>

#include <cairo.h>

#include "platform/graphics/PngEncoder.h"

namespace vexo::graphics {

namespace {

void setColor(cairo_t* cr, const Color& c) {
    cairo_set_source_rgba(cr, c.red, c.green, c.blue, c.alpha);
}

void addStop(cairo_pattern_t* pattern, double offset, const Color& c) {
    cairo_pattern_add_color_stop_rgba(pattern, offset, c.red, c.green, c.blue, c.alpha);
}

void ovalPath(cairo_t* cr, const Rect& rect) {
    cairo_new_path(cr);
    if (rect.width <= 0 || rect.height <= 0)
        return;
    cairo_save(cr);
    cairo_translate(cr, rect.x + rect.width / 2, rect.y + rect.height / 2);
    cairo_scale(cr, rect.width / 2, rect.height / 2);
    cairo_arc(cr, 0, 0, 1, 0, 2 * 3.14159265358979323846);
    cairo_restore(cr);
    cairo_close_path(cr);
}

cairo_line_cap_t toCairo(Canvas::LineCap cap) {
    return cap == Canvas::LineCap::Round ? CAIRO_LINE_CAP_ROUND : CAIRO_LINE_CAP_BUTT;
}

} // namespace

Canvas::Canvas(int width, int height)
    : m_width(width),
      m_height(height) {
    if (width < 1 || height < 1 || width > kMaxSide || height > kMaxSide)
        throw std::invalid_argument("canvas size out of range: " + std::to_string(width) + "x" +
                                    std::to_string(height));
    m_surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height);
    m_cairo = cairo_create(m_surface);
    if (cairo_status(m_cairo) != CAIRO_STATUS_SUCCESS) {
        cairo_destroy(m_cairo);
        cairo_surface_destroy(m_surface);
        throw std::bad_alloc();
    }
}

Canvas::~Canvas() {
    cairo_destroy(m_cairo);
    cairo_surface_destroy(m_surface);
}

void Canvas::applyFill(const Fill& fill) {
    if (const auto* color = std::get_if<Color>(&fill)) {
        setColor(m_cairo, *color);
        return;
    }
    cairo_pattern_t* pattern = nullptr;
    if (const auto* linear = std::get_if<LinearGradient>(&fill)) {
        pattern = cairo_pattern_create_linear(linear->start.x, linear->start.y, linear->end.x, linear->end.y);
        addStop(pattern, 0, linear->from);
        addStop(pattern, 1, linear->to);
    } else {
        const auto& radial = std::get<RadialGradient>(fill);
        pattern = cairo_pattern_create_radial(radial.center.x, radial.center.y, 0, radial.center.x, radial.center.y,
                                              radial.radius);
        addStop(pattern, 0, radial.inner);
        addStop(pattern, 1, radial.outer);
    }
    cairo_pattern_set_extend(pattern, CAIRO_EXTEND_PAD);
    cairo_set_source(m_cairo, pattern);
    cairo_pattern_destroy(pattern);
}

void Canvas::fillRect(const Rect& rect, const Fill& fill) {
    cairo_new_path(m_cairo);
    cairo_rectangle(m_cairo, rect.x, rect.y, rect.width, rect.height);
    applyFill(fill);
    cairo_fill(m_cairo);
}

void Canvas::fillRoundedRect(const Rect& rect, double cornerRadius, const Fill& fill) {
    double r = std::min({cornerRadius, rect.width / 2, rect.height / 2});
    if (r <= 0) {
        fillRect(rect, fill);
        return;
    }
    constexpr double kQuarter = 3.14159265358979323846 / 2;
    double left = rect.x, top = rect.y, right = rect.x + rect.width, bottom = rect.y + rect.height;
    cairo_new_path(m_cairo);
    cairo_arc(m_cairo, right - r, top + r, r, -kQuarter, 0);
    cairo_arc(m_cairo, right - r, bottom - r, r, 0, kQuarter);
    cairo_arc(m_cairo, left + r, bottom - r, r, kQuarter, 2 * kQuarter);
    cairo_arc(m_cairo, left + r, top + r, r, 2 * kQuarter, 3 * kQuarter);
    cairo_close_path(m_cairo);
    applyFill(fill);
    cairo_fill(m_cairo);
}

void Canvas::fillOval(const Rect& rect, const Fill& fill) {
    ovalPath(m_cairo, rect);
    applyFill(fill);
    cairo_fill(m_cairo);
}

void Canvas::strokeOval(const Rect& rect, double lineWidth, const Color& color) {
    ovalPath(m_cairo, rect);
    setColor(m_cairo, color);
    cairo_set_line_width(m_cairo, lineWidth);
    cairo_stroke(m_cairo);
}

void Canvas::strokeArc(Point center, double radius, double startAngle, double endAngle, double lineWidth,
                       const Color& color, LineCap cap) {
    cairo_new_path(m_cairo);
    cairo_arc(m_cairo, center.x, center.y, radius, startAngle, endAngle);
    setColor(m_cairo, color);
    cairo_set_line_width(m_cairo, lineWidth);
    cairo_set_line_cap(m_cairo, toCairo(cap));
    cairo_stroke(m_cairo);
}

void Canvas::fillPolygon(std::span<const Point> points, const Fill& fill) {
    cairo_new_path(m_cairo);
    for (const Point& p : points)
        cairo_line_to(m_cairo, p.x, p.y);
    cairo_close_path(m_cairo);
    applyFill(fill);
    cairo_fill(m_cairo);
}

void Canvas::strokePolyline(std::span<const Point> points, double lineWidth, const Color& color, LineCap cap) {
    cairo_new_path(m_cairo);
    for (const Point& p : points)
        cairo_line_to(m_cairo, p.x, p.y);
    setColor(m_cairo, color);
    cairo_set_line_width(m_cairo, lineWidth);
    cairo_set_line_cap(m_cairo, toCairo(cap));
    cairo_set_line_join(m_cairo, cap == LineCap::Round ? CAIRO_LINE_JOIN_ROUND : CAIRO_LINE_JOIN_MITER);
    cairo_stroke(m_cairo);
}

void Canvas::clipToOval(const Rect& rect) {
    ovalPath(m_cairo, rect);
    cairo_clip(m_cairo);
}

void Canvas::resetClip() {
    cairo_reset_clip(m_cairo);
}

void Canvas::drawImage(const Image& image, const Rect& rect) {
    if (rect.width <= 0 || rect.height <= 0)
        return;
    // Cairo only reads the pixels; the cast is for its C signature.
    auto* data = reinterpret_cast<unsigned char*>(const_cast<std::uint32_t*>(image.pixels()));
    cairo_format_t format = image.alpha() == Image::Alpha::Opaque ? CAIRO_FORMAT_RGB24 : CAIRO_FORMAT_ARGB32;
    cairo_surface_t* source =
        cairo_image_surface_create_for_data(data, format, image.width(), image.height(), image.stride());
    cairo_pattern_t* pattern = cairo_pattern_create_for_surface(source);
    cairo_matrix_t matrix;
    // The pattern matrix maps canvas space to image space.
    cairo_matrix_init_scale(&matrix, image.width() / rect.width, image.height() / rect.height);
    cairo_matrix_translate(&matrix, -rect.x, -rect.y);
    cairo_pattern_set_matrix(pattern, &matrix);
    cairo_pattern_set_filter(pattern, CAIRO_FILTER_GOOD);
    // Padding keeps the border pixels from fading into transparency when interpolated.
    cairo_pattern_set_extend(pattern, CAIRO_EXTEND_PAD);
    cairo_new_path(m_cairo);
    cairo_rectangle(m_cairo, rect.x, rect.y, rect.width, rect.height);
    cairo_set_source(m_cairo, pattern);
    cairo_fill(m_cairo);
    // Drop the source before the image can go away: nothing may keep reading it.
    cairo_set_source_rgb(m_cairo, 0, 0, 0);
    cairo_pattern_destroy(pattern);
    cairo_surface_finish(source);
    cairo_surface_destroy(source);
}

Image Canvas::toImage() const {
    cairo_surface_flush(m_surface);
    Image image(m_width, m_height, Image::Alpha::Premultiplied);
    const unsigned char* data = cairo_image_surface_get_data(m_surface);
    int stride = cairo_image_surface_get_stride(m_surface);
    for (int y = 0; y < m_height; ++y)
        std::memcpy(image.row(y), data + static_cast<std::size_t>(y) * stride, static_cast<std::size_t>(m_width) * 4);
    return image;
}

std::optional<std::vector<std::uint8_t>> Canvas::encodePng() const {
    return PngEncoder::encode(toImage());
}

} // namespace vexo::graphics
