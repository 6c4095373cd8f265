#pragma once

#include <cstdint>
#include <optional>
#include <vector>

// Draws the cover of a demonstration song with the graphics layer: a gradient, diagonal
// bands and a record, in colours chosen by a seed, at any size and aspect.
namespace vexo::library {

class ArtworkPainter {
public:
    ArtworkPainter() = delete;

    // A PNG of `width` x `height` pixels (each from 1 to the canvas's largest side); the same
    // seed and size give the same bytes. Nothing only if encoding fails.
    [[nodiscard]] static std::optional<std::vector<std::uint8_t>> paint(int width, int height, std::uint32_t seed);
};

} // namespace vexo::library
