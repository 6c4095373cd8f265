#include "ui/ArtworkPicture.h"

#include "platform/graphics/AssetCatalog.h"
#include "platform/graphics/RoundArtworkRenderer.h"

namespace vexo::ui {

std::optional<std::vector<std::uint8_t>> roundArtwork(const std::optional<std::vector<std::uint8_t>>& imageData,
                                                      const graphics::RoundArtworkStyle& style) {
    if (!imageData)
        return std::nullopt;
    return graphics::RoundArtworkRenderer::shared().render(*imageData, style);
}

std::optional<std::vector<std::uint8_t>> defaultArtworkPNG() {
    return graphics::AssetCatalog::shared().imageNamed("default-artwork");
}

} // namespace vexo::ui
