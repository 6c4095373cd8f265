#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "platform/graphics/DecodeLimits.h"
#include "platform/graphics/Image.h"
#include "platform/graphics/Rect.h"

// JPEG through libjpeg-turbo. Library errors never escape: they unwind with longjmp to
// the decode call, which then returns nothing.
namespace vexo::graphics {

class JpegDecoder {
public:
    // The declared size, or nothing when no frame header can be read.
    [[nodiscard]] static std::optional<Size> readSize(std::span<const std::uint8_t> data);

    // The scale numerator n (over 8) that the decoder uses for a `source` image wanted at
    // `target`: the smallest n with both scaled sides at least the target's, 8 for none.
    [[nodiscard]] static int scaleNumeratorFor(Size source, Size target);

    // Decodes, DCT-scaled towards `target` and then box-reduced (see ImageDecoder). Refuses
    // sizes over `limits` after reading the header, before any pixel buffer is allocated;
    // refuses truncated data and progressive files with an absurd number of scans. An EXIF
    // orientation is applied, so the result may be the source turned on its side.
    [[nodiscard]] static std::optional<Image> decode(std::span<const std::uint8_t> data, const DecodeLimits& limits,
                                                     Size target);
};

} // namespace vexo::graphics
