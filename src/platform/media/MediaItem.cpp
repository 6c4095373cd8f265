#include "platform/media/MediaItem.h"

#include <cmath>

#include "platform/media/CamelotKey.h"
#include "platform/media/MediaLibrary.h"

namespace vexo::media {

MediaItem::MediaItem(Properties properties, std::optional<std::vector<std::uint8_t>> artworkData)
    : m_properties(std::move(properties)),
      m_hasArtwork(artworkData.has_value()) {
    if (artworkData)
        m_artworkData = std::make_shared<const std::vector<std::uint8_t>>(std::move(*artworkData));
}

MediaItem::MediaItem(Properties properties, std::weak_ptr<const MediaLibrary> library, bool hasArtwork)
    : m_properties(std::move(properties)),
      m_library(std::move(library)),
      m_hasArtwork(hasArtwork) {}

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

double MediaItem::chosenBeatsPerMinute(ValuePreference preference) const {
    const double tagged = static_cast<double>(m_properties.beatsPerMinute);
    const double analysed = m_properties.analysis ? m_properties.analysis->beatsPerMinute.value_or(0) : 0;
    if (preference == ValuePreference::Analysis)
        return analysed > 0 ? analysed : tagged;
    return tagged > 0 ? tagged : analysed;
}

std::string MediaItem::chosenKey(ValuePreference preference) const {
    std::string tagged = m_properties.initialKey;
    if (auto camelot = camelotKeyFromTag(tagged))
        tagged = std::move(*camelot);
    std::string analysed = m_properties.analysis ? m_properties.analysis->key.value_or("") : "";
    if (preference == ValuePreference::Analysis)
        return !analysed.empty() ? analysed : tagged;
    return !tagged.empty() ? tagged : analysed;
}

double MediaItem::chosenFirstBeatSeconds(ValuePreference preference) const {
    if (!m_properties.analysis || !m_properties.analysis->beatsPerMinute || !m_properties.analysis->firstBeatSeconds)
        return 0;
    const double analysed = *m_properties.analysis->beatsPerMinute;
    const double chosen = chosenBeatsPerMinute(preference);
    // A tag that rounds the analysed tempo keeps the analysed grid's place.
    return std::abs(chosen - analysed) <= 0.01 * analysed ? *m_properties.analysis->firstBeatSeconds : 0;
}

bool operator==(const MediaItem& a, const MediaItem& b) {
    const auto& x = a.m_properties;
    const auto& y = b.m_properties;
    return x.persistentID == y.persistentID && x.title == y.title && x.artist == y.artist &&
           x.albumTitle == y.albumTitle && x.playbackDuration == y.playbackDuration && x.mediaType == y.mediaType &&
           x.assetURL == y.assetURL && x.beatsPerMinute == y.beatsPerMinute && x.initialKey == y.initialKey &&
           x.analysis == y.analysis && a.m_hasArtwork == b.m_hasArtwork;
}

} // namespace vexo::media
