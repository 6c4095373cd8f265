#pragma once

#include <cstdint>
#include <vector>

// A decoded bitmap in the pixel layout the canvas draws from: 32-bit native-endian words
// 0xAARRGGBB with premultiplied alpha, rows packed without padding.
namespace vexo::graphics {

// One pixel with straight (not premultiplied) 8-bit components.
struct Rgba8 {
    std::uint8_t red = 0;
    std::uint8_t green = 0;
    std::uint8_t blue = 0;
    std::uint8_t alpha = 0;
    friend constexpr bool operator==(const Rgba8&, const Rgba8&) = default;
};

class Image {
public:
    // Whether every pixel is opaque; an opaque image is drawn without blending its alpha.
    enum class Alpha { Opaque, Premultiplied };

    // An image of `width` x `height` pixels, all transparent black (opaque black when
    // `alpha` is Opaque). Requires positive dimensions that the caller has already capped.
    Image(int width, int height, Alpha alpha);

    [[nodiscard]] int width() const { return m_width; }
    [[nodiscard]] int height() const { return m_height; }
    [[nodiscard]] Alpha alpha() const { return m_alpha; }

    // Bytes from one row to the next; always width x 4.
    [[nodiscard]] int stride() const { return m_width * 4; }

    // The pixel words, row after row. The canvas wraps them without copying.
    [[nodiscard]] std::uint32_t* pixels() { return m_pixels.data(); }
    [[nodiscard]] const std::uint32_t* pixels() const { return m_pixels.data(); }
    [[nodiscard]] std::uint32_t* row(int y) { return m_pixels.data() + static_cast<std::size_t>(y) * m_width; }

    // The pixel at (x, y) un-premultiplied; requires 0 <= x < width and 0 <= y < height.
    [[nodiscard]] Rgba8 pixel(int x, int y) const;

    // Stores a straight-alpha pixel at (x, y), premultiplying it; same requirement as pixel().
    void setPixel(int x, int y, Rgba8 value);

private:
    int m_width;
    int m_height;
    Alpha m_alpha;
    std::vector<std::uint32_t> m_pixels;
};

} // namespace vexo::graphics
