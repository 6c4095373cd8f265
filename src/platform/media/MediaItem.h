#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/media/MediaType.h"
#include "platform/plist/Value.h"

// One song (or other media file) of the local media library, as a plain value: what the
// index said when the query ran. Copies are cheap enough to keep in lists; the embedded
// picture is not held but read from the index when asked for.
namespace vexo::media {

class MediaLibrary;

// What the analyser found in an item's file (see platform/analysis). A value is absent where
// it found none; `failure` says why it found less than everything.
struct ItemAnalysis {
    // The analyser's version; a newer analyser analyses the item again.
    int version = 0;
    // Beats per minute to 0.01, and where the first beat of its constant-tempo grid lies.
    std::optional<double> beatsPerMinute;
    std::optional<double> firstBeatSeconds;
    // Camelot notation ("8A").
    std::optional<std::string> key;
    // Integrated loudness (EBU R128) and true peak.
    std::optional<double> loudnessLUFS;
    std::optional<double> truePeakDBTP;
    std::optional<std::string> failure;

    friend bool operator==(const ItemAnalysis&, const ItemAnalysis&) = default;
};

// Which of a song's tempo and key to use where both its tags and the analysis give one.
enum class ValuePreference { Tags, Analysis };

class MediaItem {
public:
    // Names accepted by valueForProperty(), those of the host platform.
    static constexpr std::string_view kPropertyPersistentID = "persistentID";
    static constexpr std::string_view kPropertyTitle = "title";
    static constexpr std::string_view kPropertyArtist = "artist";
    static constexpr std::string_view kPropertyAlbumTitle = "albumTitle";
    static constexpr std::string_view kPropertyPlaybackDuration = "playbackDuration";
    static constexpr std::string_view kPropertyMediaType = "mediaType";
    static constexpr std::string_view kPropertyAssetURL = "assetURL";
    static constexpr std::string_view kPropertyBeatsPerMinute = "beatsPerMinute";
    // The host platform has no key property; named in the same style.
    static constexpr std::string_view kPropertyInitialKey = "initialKey";

    struct Properties {
        PersistentID persistentID = 0;
        std::string title;
        std::string artist;
        std::string albumTitle;
        // Seconds.
        double playbackDuration = 0;
        MediaType mediaType = MediaType::Music;
        // A file:// URL; nothing when the file has gone.
        std::optional<std::string> assetURL;
        // Whole beats per minute from the tempo tag; 0 when the file has none.
        std::int64_t beatsPerMinute = 0;
        // The musical key as tagged ("Am", "8A"); empty when the file has none.
        std::string initialKey;
        // Nothing until the song has been analysed.
        std::optional<ItemAnalysis> analysis;
    };

    // An empty item: identifier 0, empty texts, no URL, no picture.
    MediaItem() = default;

    // An item that carries its picture itself (or none); for items made outside an index,
    // such as in tests of the screens.
    explicit MediaItem(Properties properties, std::optional<std::vector<std::uint8_t>> artworkData = std::nullopt);

    // An item of `library` whose picture, when `hasArtwork`, is read from the index on demand.
    // Holds the library weakly: once it is gone the item reads as having no picture.
    MediaItem(Properties properties, std::weak_ptr<const MediaLibrary> library, bool hasArtwork);

    [[nodiscard]] PersistentID persistentID() const { return m_properties.persistentID; }
    // Empty when the file has no title tag and no file name to fall back on.
    [[nodiscard]] const std::string& title() const { return m_properties.title; }
    [[nodiscard]] const std::string& artist() const { return m_properties.artist; }
    [[nodiscard]] const std::string& albumTitle() const { return m_properties.albumTitle; }
    // Seconds; 0 when the length is unknown.
    [[nodiscard]] double playbackDuration() const { return m_properties.playbackDuration; }
    [[nodiscard]] MediaType mediaType() const { return m_properties.mediaType; }
    // The tempo tag in whole beats per minute (ID3v2 TBPM, Xiph BPM, MP4 tmpo, ...); 0 when
    // the file has none.
    [[nodiscard]] std::int64_t beatsPerMinute() const { return m_properties.beatsPerMinute; }
    // The initial-key tag as written (ID3v2 TKEY, Xiph INITIALKEY or KEY, MP4's initialkey
    // atom, ...); empty when the file has none.
    [[nodiscard]] const std::string& initialKey() const { return m_properties.initialKey; }
    // What the analyser found; nothing before the song was analysed.
    [[nodiscard]] const std::optional<ItemAnalysis>& analysis() const { return m_properties.analysis; }

    // The tempo to show and play by: the tag's when the file has one, else the analysis's (the
    // other way round when `preference` is Analysis); 0 when neither gives one.
    [[nodiscard]] double chosenBeatsPerMinute(ValuePreference preference) const;
    // The key to show, in Camelot notation ("8A") whichever gave it: the tag's when it names a
    // key (converted from "Am", "A minor", Open Key ...), else the analysis's (the other way
    // round when `preference` is Analysis). A tag that names no key this program knows is
    // given as written; empty when neither gives one.
    [[nodiscard]] std::string chosenKey(ValuePreference preference) const;
    // The first beat of the grid to play by: the analysis's when the chosen tempo is the
    // analysis's or agrees with it within 1 %, else 0 (a grid from the start at the tagged
    // tempo).
    [[nodiscard]] double chosenFirstBeatSeconds(ValuePreference preference) const;

    // The file's URL (file://, percent-encoded). Nothing when the file has gone since the
    // last scan: the item cannot be played, and screens show it grey.
    [[nodiscard]] const std::optional<std::string>& assetURL() const { return m_properties.assetURL; }

    // The embedded picture's bytes as stored in the file (JPEG or PNG, usually), or nothing.
    // Items of an index read it from there on each call, so that lists stay small; any
    // thread.
    [[nodiscard]] std::optional<std::vector<std::uint8_t>> artworkData() const;

    // The property under one of the kProperty names as a property-list value (integers for
    // the identifier, the type and the tempo, a real for the duration, strings otherwise);
    // nothing for an unknown name or an absent value (no URL, a tempo of 0, an empty key), as
    // on the host platform.
    [[nodiscard]] plist::Value valueForProperty(std::string_view property) const;

    // Same identifier and same properties; where the picture comes from does not count.
    friend bool operator==(const MediaItem& a, const MediaItem& b);

private:
    Properties m_properties;
    std::weak_ptr<const MediaLibrary> m_library;
    bool m_hasArtwork = false;
    // Shared between copies: an item made with its picture keeps one copy of the bytes.
    std::shared_ptr<const std::vector<std::uint8_t>> m_artworkData;
};

} // namespace vexo::media
