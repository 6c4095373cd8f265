#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "platform/graphics/DecodeLimits.h"
#include "platform/graphics/Image.h"
#include "platform/graphics/Rect.h"

// PNG through libpng. Library errors never escape: they unwind with longjmp to the
// decode call, which then returns nothing.
namespace vexo::graphics {

class PngDecoder {
public:
    // The size in the IHDR chunk, or nothing when the data does not start with one.
    [[nodiscard]] static std::optional<Size> readSize(std::span<const std::uint8_t> data);

    // Decodes any colour type and bit depth to 8-bit premultiplied pixels (16-bit samples
    // are scaled down, palettes and transparency expanded), then box-reduces towards
    // `target` (see ImageDecoder). Refuses sizes over `limits` before allocating pixels and
    // any data that fails libpng's checks (bad CRC, truncation, malformed chunks).
    [[nodiscard]] static std::optional<Image> decode(std::span<const std::uint8_t> data, const DecodeLimits& limits,
                                                     Size target);
};

} // namespace vexo::graphics
