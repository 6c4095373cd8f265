#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/plist/Value.h"

// One song as the phone describes it in a song-information message: {"songID", "name",
// "artist", "duration", "artworkImage"}.
//
// A song is created for each new song identifier a deck announces and merged in place while
// the identifier stays the same (VXAWTurntable). Main thread.
namespace vexo::model {

class VXAWSong {
public:
    // An empty song; every property is nothing or 0.
    VXAWSong() = default;

    // initWithDictionary: a new song filled from `dictionary` (a merge into an empty song).
    explicit VXAWSong(const plist::Value& dictionary);

    VXAWSong(const VXAWSong&) = delete;
    VXAWSong& operator=(const VXAWSong&) = delete;

    // Merges `dictionary` into the song and returns whether any property was assigned.
    //
    // A string property is assigned unless it already holds a string equal to the
    // dictionary's; so a property that is nothing is assigned (and counts as a change) on
    // every merge, even when the dictionary has nothing for it either. The duration is
    // assigned when its integer value differs. Artwork is taken only while the song has none:
    // once set it is never replaced or cleared.
    bool updateMetadata(const plist::Value& dictionary);

    const std::optional<std::string>& identifier() const { return m_identifier; }
    void setIdentifier(std::optional<std::string> identifier) { m_identifier = std::move(identifier); }
    const std::optional<std::string>& name() const { return m_name; }
    void setName(std::optional<std::string> name) { m_name = std::move(name); }
    const std::optional<std::string>& artist() const { return m_artist; }
    void setArtist(std::optional<std::string> artist) { m_artist = std::move(artist); }
    // The encoded image as the phone sent it, or nothing.
    const std::optional<plist::Data>& artworkImageData() const { return m_artworkImageData; }
    void setArtworkImageData(std::optional<plist::Data> data) { m_artworkImageData = std::move(data); }
    // In the phone's units; the screens format it.
    std::int64_t duration() const { return m_duration; }
    void setDuration(std::int64_t duration) { m_duration = duration; }

private:
    std::optional<std::string> m_identifier;
    std::optional<std::string> m_name;
    std::optional<std::string> m_artist;
    std::optional<plist::Data> m_artworkImageData;
    std::int64_t m_duration = 0;
};

} // namespace vexo::model
