#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

#include "platform/graphics/DecodeLimits.h"
#include "platform/graphics/Image.h"
#include "platform/graphics/LruCache.h"
#include "platform/graphics/RoundArtworkStyle.h"

// Makes the round artwork pictures of the screens: encoded image data in, PNG data out.
//
// Screens repaint on every activation and the mixer sets deck 2's artwork twice per song,
// so results are cached: the same bytes drawn in the same style are decoded once while
// they stay among the most recent `cacheCapacity` pictures. Entries are keyed by a 64-bit
// hash and the length of the data, not by the data itself. Thread-safe.
namespace vexo::graphics {

class RoundArtworkRenderer {
public:
    explicit RoundArtworkRenderer(DecodeLimits limits = {}, std::size_t cacheCapacity = 16);
    RoundArtworkRenderer(const RoundArtworkRenderer&) = delete;
    RoundArtworkRenderer& operator=(const RoundArtworkRenderer&) = delete;

    // The process-wide renderer that the screens share.
    static RoundArtworkRenderer& shared();

    // The round picture of `imageData` in `style`, as PNG; nothing when the data cannot be
    // decoded (an undecodable image shows no picture) or the style's size is not positive.
    [[nodiscard]] std::optional<std::vector<std::uint8_t>> render(std::span<const std::uint8_t> imageData,
                                                                  const RoundArtworkStyle& style);

    // Draws an already decoded image in `style`, without the cache.
    [[nodiscard]] static std::optional<std::vector<std::uint8_t>> renderImage(const Image& image,
                                                                              const RoundArtworkStyle& style);

    // How many times render() has decoded data so far (cache misses); for tests.
    [[nodiscard]] std::size_t decodeCount() const;

private:
    struct Key {
        std::uint64_t hash;
        std::size_t length;
        RoundArtworkStyle style;
        friend bool operator==(const Key&, const Key&) = default;
    };
    struct KeyHash {
        std::size_t operator()(const Key& key) const;
    };
    using Result = std::optional<std::vector<std::uint8_t>>;

    DecodeLimits m_limits;
    mutable std::mutex m_mutex;
    LruCache<Key, Result, KeyHash> m_cache;
    std::size_t m_decodeCount = 0;
};

} // namespace vexo::graphics
