#pragma once

#include <cstddef>
#include <cstdint>

// Bounds that every image decode checks before it allocates: artwork arrives from the
// phone and from tag data, so a few bytes must never be able to ask for gigabytes.
namespace vexo::graphics {

struct DecodeLimits {
    // Encoded data longer than this is refused without being read.
    std::size_t maxInputBytes = 32u << 20;
    // Width x height as declared in the header; checked before any pixel memory exists.
    std::uint64_t maxPixels = 50'000'000;
    // Either side longer than this is refused, whatever the product.
    std::uint32_t maxDimension = 30'000;
};

} // namespace vexo::graphics
