#include "platform/media/MediaItem.h"

#include "platform/media/MediaLibrary.h"

namespace vexo::media {

MediaItem::MediaItem(Properties properties, std::optional<std::vector<std::uint8_t>> artworkData)
    : m_properties(std::move(properties)), m_hasArtwork(artworkData.has_value()) {
    if (artworkData)
        m_artworkData = std::make_shared<const std::vector<std::uint8_t>>(std::move(*artworkData));
}

MediaItem::MediaItem(Properties properties, std::weak_ptr<const MediaLibrary> library, bool hasArtwork)
    : m_properties(std::move(properties)), m_library(std::move(library)), m_hasArtwork(hasArtwork) {}

std::optional<std::vector<std::uint8_t>> MediaItem::artworkData() const {
    if (!m_hasArtwork)
        return std::nullopt;
    if (m_artworkData)
        return *m_artworkData;
    if (const auto library = m_library.lock())
        return library->artworkDataForPersistentID(m_properties.persistentID);
    return std::nullopt;
}

plist::Value MediaItem::valueForProperty(std::string_view property) const {
    if (property == kPropertyPersistentID)
        return plist::Value(m_properties.persistentID);
    if (property == kPropertyTitle)
        return plist::Value(m_properties.title);
    if (property == kPropertyArtist)
        return plist::Value(m_properties.artist);
    if (property == kPropertyAlbumTitle)
        return plist::Value(m_properties.albumTitle);
    if (property == kPropertyPlaybackDuration)
        return plist::Value(m_properties.playbackDuration);
    if (property == kPropertyMediaType)
        return plist::Value(static_cast<std::uint64_t>(m_properties.mediaType));
    if (property == kPropertyAssetURL && m_properties.assetURL)
        return plist::Value(*m_properties.assetURL);
    if (property == kPropertyBeatsPerMinute && m_properties.beatsPerMinute != 0)
        return plist::Value(m_properties.beatsPerMinute);
    if (property == kPropertyInitialKey && !m_properties.initialKey.empty())
        return plist::Value(m_properties.initialKey);
    return {};
}

bool operator==(const MediaItem& a, const MediaItem& b) {
    const auto& x = a.m_properties;
    const auto& y = b.m_properties;
    return x.persistentID == y.persistentID && x.title == y.title && x.artist == y.artist &&
           x.albumTitle == y.albumTitle && x.playbackDuration == y.playbackDuration &&
           x.mediaType == y.mediaType && x.assetURL == y.assetURL && x.beatsPerMinute == y.beatsPerMinute &&
           x.initialKey == y.initialKey && a.m_hasArtwork == b.m_hasArtwork;
}

} // namespace vexo::media
