#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "platform/graphics/Image.h"

// Writes an Image as a PNG file in memory: 8-bit RGBA, or RGB for an opaque image.
// Tuned for the small pictures the screens send on every repaint, where a fast, light
// compression beats squeezing out the last few bytes.
namespace vexo::graphics {

class PngEncoder {
public:
    // The PNG bytes of `image`; nothing only if libpng fails (it does not for valid images).
    [[nodiscard]] static std::optional<std::vector<std::uint8_t>> encode(const Image& image);
};

} // namespace vexo::graphics
