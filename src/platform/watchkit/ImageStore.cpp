#include "platform/watchkit/ImageStore.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "platform/log/Log.h"

namespace vexo::watchkit {

namespace {

constexpr std::string_view kComponent = "watchkit";

// FNV-1a over the bytes; the length joins it in the identifier, so a collision needs two
// pictures of one length with one 64-bit hash, and add() still tells them apart.
std::uint64_t hashBytes(const std::vector<std::uint8_t>& bytes) {
    std::uint64_t hash = 0xcbf29ce484222325ull;
    for (std::uint8_t byte : bytes) {
        hash ^= byte;
        hash *= 0x100000001b3ull;
    }
    return hash;
}

std::string identifierFor(const std::vector<std::uint8_t>& bytes) {
    std::array<char, 48> text{};
    std::snprintf(text.data(), text.size(), "%016llx-%zu", static_cast<unsigned long long>(hashBytes(bytes)),
                  bytes.size());
    return text.data();
}

std::uint32_t bigEndian32(const std::vector<std::uint8_t>& bytes, std::size_t offset) {
    return (std::uint32_t{bytes[offset]} << 24) | (std::uint32_t{bytes[offset + 1]} << 16) |
           (std::uint32_t{bytes[offset + 2]} << 8) | std::uint32_t{bytes[offset + 3]};
}

void describe(ImageData& image) {
    static constexpr std::array<std::uint8_t, 8> kPngSignature = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
    const std::vector<std::uint8_t>& bytes = image.bytes;
    image.mediaType = "application/octet-stream";
    if (bytes.size() >= 24 && std::equal(kPngSignature.begin(), kPngSignature.end(), bytes.begin())) {
        image.mediaType = "image/png";
        // The first chunk of a PNG is IHDR: width and height right after its type.
        if (bytes[12] == 'I' && bytes[13] == 'H' && bytes[14] == 'D' && bytes[15] == 'R') {
            std::uint32_t width = bigEndian32(bytes, 16);
            std::uint32_t height = bigEndian32(bytes, 20);
            if (width <= 1u << 20 && height <= 1u << 20) {
                image.width = static_cast<int>(width);
                image.height = static_cast<int>(height);
            }
        }
    } else if (bytes.size() >= 3 && bytes[0] == 0xff && bytes[1] == 0xd8 && bytes[2] == 0xff) {
        image.mediaType = "image/jpeg";
    }
}

} // namespace

std::shared_ptr<const ImageData> ImageStore::add(std::vector<std::uint8_t> bytes) {
    if (bytes.size() > kMaxImageBytes) {
        log::warning(kComponent, "image data of " + std::to_string(bytes.size()) + " bytes refused; the limit is " +
                                     std::to_string(kMaxImageBytes));
        return nullptr;
    }
    std::string id = identifierFor(bytes);
    std::lock_guard lock(m_mutex);
    pruneExpired();
    std::string key = id;
    for (int suffix = 2;; ++suffix) {
        auto found = m_images.find(key);
        if (found == m_images.end())
            break;
        std::shared_ptr<const ImageData> existing = found->second.lock();
        if (existing && existing->bytes == bytes)
            return existing;
        if (!existing)
            break;
        key = id + "." + std::to_string(suffix);
    }
    auto image = std::make_shared<ImageData>();
    image->id = key;
    image->bytes = std::move(bytes);
    describe(*image);
    std::shared_ptr<const ImageData> stored = std::move(image);
    m_images[key] = stored;
    m_recent.push_back(stored);
    if (m_recent.size() > kRecentCount)
        m_recent.pop_front();
    return stored;
}

std::shared_ptr<const ImageData> ImageStore::find(std::string_view id) const {
    std::lock_guard lock(m_mutex);
    auto found = m_images.find(id);
    return found == m_images.end() ? nullptr : found->second.lock();
}

std::size_t ImageStore::size() const {
    std::lock_guard lock(m_mutex);
    return static_cast<std::size_t>(
        std::count_if(m_images.begin(), m_images.end(), [](const auto& entry) { return !entry.second.expired(); }));
}

void ImageStore::pruneExpired() {
    std::erase_if(m_images, [](const auto& entry) { return entry.second.expired(); });
}

} // namespace vexo::watchkit
