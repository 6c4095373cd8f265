#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "platform/graphics/RoundArtworkStyle.h"

// The round artwork pictures the screens show: a song's image data (or the application
// image "default-artwork" when it has none) drawn into a screen's own round style as PNG.
//
// Drawing goes through the process-wide renderer, which keeps recent results, so the same
// artwork is not decoded twice for the same size however often screens repaint.
namespace vexo::ui {

// The round PNG of `imageData` in `style`; nothing when there is no data or it does not
// decode.
[[nodiscard]] std::optional<std::vector<std::uint8_t>>
roundArtwork(const std::optional<std::vector<std::uint8_t>>& imageData, const graphics::RoundArtworkStyle& style);

// The PNG representation of the application image "default-artwork"; nothing when the
// catalogue has no such image.
[[nodiscard]] std::optional<std::vector<std::uint8_t>> defaultArtworkPNG();

} // namespace vexo::ui
