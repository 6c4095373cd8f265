#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "platform/watchkit/ImageData.h"

// The image bytes that interface objects show, by content hash, so that a web server can
// serve them while the objects refer to them only by identifier.
//
// An image stays in the store while an object shows it, and among the last kRecentCount
// images added after that, so that a client that hears of a change a moment late still
// finds the picture. Thread-safe: the main loop adds, a server thread may look up.
namespace vexo::watchkit {

class ImageStore {
public:
    // Larger data is no picture of ours; it is refused rather than kept.
    static constexpr std::size_t kMaxImageBytes = 16u << 20;
    static constexpr std::size_t kRecentCount = 16;

    ImageStore() = default;
    ImageStore(const ImageStore&) = delete;
    ImageStore& operator=(const ImageStore&) = delete;
    ImageStore(ImageStore&&) = delete;
    ImageStore& operator=(ImageStore&&) = delete;

    // The stored image holding `bytes`; the same bytes added twice give the same object.
    // Nothing (and a log line) when the data is larger than kMaxImageBytes.
    [[nodiscard]] std::shared_ptr<const ImageData> add(std::vector<std::uint8_t> bytes);

    // The image named `id`, or nullptr when no object shows it any more and it is no
    // longer among the recent ones.
    [[nodiscard]] std::shared_ptr<const ImageData> find(std::string_view id) const;

    // The number of images that can still be found.
    [[nodiscard]] std::size_t size() const;

private:
    void pruneExpired();

    mutable std::mutex m_mutex;
    std::map<std::string, std::weak_ptr<const ImageData>, std::less<>> m_images;
    std::deque<std::shared_ptr<const ImageData>> m_recent;
};

} // namespace vexo::watchkit
