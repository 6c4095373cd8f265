#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "platform/graphics/DecodeLimits.h"
#include "platform/graphics/Image.h"
#include "platform/graphics/Rect.h"

// Turns encoded JPEG or PNG data into an Image, the way the screens expect of
// "decode this artwork": anything that is not a whole, reasonably sized JPEG or PNG
// yields nothing and logs why at debug level. Safe to call from any thread; a decoder
// holds only its limits.
namespace vexo::graphics {

class ImageDecoder {
public:
    enum class Format { Jpeg, Png };

    // What the header declares, read without decoding any pixel.
    struct Header {
        Format format;
        int width;
        int height;
    };

    explicit ImageDecoder(DecodeLimits limits = {});

    [[nodiscard]] const DecodeLimits& limits() const { return m_limits; }

    // The format told by the data's signature, or nothing for anything else.
    [[nodiscard]] static std::optional<Format> sniff(std::span<const std::uint8_t> data);

    // Reads the format and declared size; nothing when the data is not a JPEG or PNG whose
    // header can be read. The limits are not applied here.
    [[nodiscard]] std::optional<Header> readHeader(std::span<const std::uint8_t> data) const;

    // Decodes the whole image. With a non-empty `target`, the result may be smaller than
    // the source but is never smaller than `target` in either direction (unless the source
    // is): JPEG is scaled in the DCT, both formats are then box-averaged by a whole factor.
    // Nothing when the data is oversized, corrupt, truncated or of another format.
    [[nodiscard]] std::optional<Image> decode(std::span<const std::uint8_t> data, Size target = {}) const;

private:
    DecodeLimits m_limits;
};

} // namespace vexo::graphics
