#pragma once

#include <optional>

#include "platform/graphics/Color.h"

// How a screen turns artwork into its round picture: a square canvas of `size` points,
// the oval inscribed in it filled with `ring` (when there is one), the image stretched over
// the whole canvas but clipped to the oval inset by `inset` on every side.
namespace vexo::graphics {

struct RoundArtworkStyle {
    int size = 0;
    std::optional<Color> ring;
    double inset = 0;

    // The deck page's 92-point badge: a 6-point ring of opaque grey 0.145.
    static constexpr RoundArtworkStyle deckPage() { return {92, Color::gray(0.145), 6}; }

    // The mixer page's 144-point picture: an 8-point transparent margin.
    static constexpr RoundArtworkStyle mixerPage() { return {144, std::nullopt, 8}; }

    // The glance's 200-point picture: an 8-point transparent margin.
    static constexpr RoundArtworkStyle glance() { return {200, std::nullopt, 8}; }

    friend constexpr bool operator==(const RoundArtworkStyle&, const RoundArtworkStyle&) = default;
};

} // namespace vexo::graphics
