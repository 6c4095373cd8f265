#include "platform/graphics/Image.h"

#include <cassert>

namespace vexo::graphics {

Image::Image(int width, int height, Alpha alpha)
    : m_width(width),
      m_height(height),
      m_alpha(alpha),
      m_pixels(static_cast<std::size_t>(width) * static_cast<std::size_t>(height),
               alpha == Alpha::Opaque ? 0xFF000000u : 0u) {
    assert(width > 0 && height > 0);
}

Rgba8 Image::pixel(int x, int y) const {
    assert(x >= 0 && x < m_width && y >= 0 && y < m_height);
    std::uint32_t word = m_pixels[static_cast<std::size_t>(y) * m_width + x];
    unsigned a = word >> 24;
    if (a == 0)
        return {};
    auto unpremultiply = [a](unsigned c) { return static_cast<std::uint8_t>((c * 255 + a / 2) / a); };
    return {unpremultiply((word >> 16) & 0xFF), unpremultiply((word >> 8) & 0xFF), unpremultiply(word & 0xFF),
            static_cast<std::uint8_t>(a)};
}

void Image::setPixel(int x, int y, Rgba8 value) {
    assert(x >= 0 && x < m_width && y >= 0 && y < m_height);
    unsigned a = value.alpha;
    auto premultiply = [a](unsigned c) { return (c * a + 127) / 255; };
    m_pixels[static_cast<std::size_t>(y) * m_width + x] =
        (a << 24) | (premultiply(value.red) << 16) | (premultiply(value.green) << 8) | premultiply(value.blue);
}

} // namespace vexo::graphics
