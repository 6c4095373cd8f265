#include "platform/graphics/RoundArtworkRenderer.h"

#include <bit>
#include <cstring>
#include <functional>
#include <string_view>

#include "platform/graphics/Canvas.h"
#include "platform/graphics/ImageDecoder.h"
#include "platform/log/Log.h"

namespace vexo::graphics {

namespace {

// The cache key of artwork bytes: four independent xxHash64-style lanes over 32-byte
// blocks, so that hashing a few megabytes of JPEG stays a small part of drawing it.
std::uint64_t hashBytes(std::span<const std::uint8_t> data) {
    constexpr std::uint64_t kPrime1 = 0x9E3779B185EBCA87ull, kPrime2 = 0xC2B2AE3D27D4EB4Full;
    std::uint64_t a = kPrime1 + kPrime2, b = kPrime2, c = 0, d = 0 - kPrime1;
    const std::uint8_t* p = data.data();
    std::size_t size = data.size(), i = 0;
    auto round = [&](std::uint64_t lane, std::size_t at) {
        std::uint64_t word;
        std::memcpy(&word, p + at, 8);
        return std::rotl(lane + word * kPrime2, 31) * kPrime1;
    };
    // Four named lanes rather than an array, so that they stay in registers.
    for (; i + 32 <= size; i += 32) {
        a = round(a, i);
        b = round(b, i + 8);
        c = round(c, i + 16);
        d = round(d, i + 24);
    }
    std::uint64_t hash = size * kPrime1;
    for (std::uint64_t lane : {a, b, c, d})
        hash = std::rotl(hash ^ (std::rotl(lane * kPrime2, 31) * kPrime1), 27) * kPrime1 + kPrime2;
    for (; i < size; ++i)
        hash = std::rotl(hash ^ (p[i] * kPrime1), 11) * kPrime2;
    hash ^= hash >> 33;
    hash *= kPrime2;
    hash ^= hash >> 29;
    return hash;
}

void combine(std::size_t& seed, std::size_t value) {
    seed ^= value + 0x9e3779b97f4a7c15ull + (seed << 6) + (seed >> 2);
}

} // namespace

std::size_t RoundArtworkRenderer::KeyHash::operator()(const Key& key) const {
    // The data hash is already well mixed; the style only needs to tell sizes apart.
    std::size_t seed = key.hash;
    combine(seed, key.length);
    combine(seed, static_cast<std::size_t>(key.style.size));
    combine(seed, std::hash<double>{}(key.style.inset));
    return seed;
}

RoundArtworkRenderer::RoundArtworkRenderer(DecodeLimits limits, std::size_t cacheCapacity)
    : m_limits(limits),
      m_cache(cacheCapacity) {}

RoundArtworkRenderer& RoundArtworkRenderer::shared() {
    static RoundArtworkRenderer renderer;
    return renderer;
}

std::optional<std::vector<std::uint8_t>> RoundArtworkRenderer::renderImage(const Image& image,
                                                                           const RoundArtworkStyle& style) {
    if (style.size <= 0 || style.size > Canvas::kMaxSide)
        return std::nullopt;
    Canvas canvas(style.size, style.size);
    Rect bounds{0, 0, static_cast<double>(style.size), static_cast<double>(style.size)};
    if (style.ring)
        canvas.fillOval(bounds, *style.ring);
    canvas.clipToOval(bounds.inset(style.inset));
    canvas.drawImage(image, bounds);
    return canvas.encodePng();
}

std::optional<std::vector<std::uint8_t>> RoundArtworkRenderer::render(std::span<const std::uint8_t> imageData,
                                                                      const RoundArtworkStyle& style) {
    if (style.size <= 0 || style.size > Canvas::kMaxSide)
        return std::nullopt;
    if (imageData.size() > m_limits.maxInputBytes) {
        // Refused before hashing: no point reading megabytes that will not be decoded.
        log::debug("graphics", "round artwork: image data over the size limit");
        return std::nullopt;
    }
    Key key{hashBytes(imageData), imageData.size(), style};
    {
        std::lock_guard lock(m_mutex);
        if (const Result* cached = m_cache.find(key))
            return *cached;
        ++m_decodeCount;
    }
    // Drawn outside the lock: two threads asking for the same new picture at once both
    // draw it, which is harmless.
    Result result;
    if (std::optional<Image> image = ImageDecoder(m_limits).decode(imageData, {style.size, style.size}))
        result = renderImage(*image, style);
    else
        log::debug("graphics", "round artwork: image data not decodable");
    std::lock_guard lock(m_mutex);
    m_cache.put(key, result);
    return result;
}

std::size_t RoundArtworkRenderer::decodeCount() const {
    std::lock_guard lock(m_mutex);
    return m_decodeCount;
}

} // namespace vexo::graphics
