#pragma once

#include <cstdint>
#include <string>
#include <vector>

// The songs and playlists of the demonstration music library: a fixed list, so that every
// run writes the same library. It covers what the screens must cope with: Unicode titles and
// artists (accents, CJK, an emoji), songs without a tempo or key tag, artwork of many sizes
// and aspects or none, an empty playlist, one that names a missing file, long and short ones.
namespace vexo::library {

enum class ArtworkShape { None, Square, Wide, Tall, Tiny, Large, Banner };

struct DemoSong {
    std::string title;
    std::string artist;
    std::string album;
    // The tempo the audio is played at; written to the tempo tag only when `tempoTagged`.
    int beatsPerMinute = 120;
    bool tempoTagged = true;
    // The key the audio is played in: 0 = C ... 11 = B.
    int keyRoot = 9;
    bool minor = true;
    // The key tag's text ("Am", "8A", "D minor"); empty: no key tag.
    std::string keyTag;
    // Length of the audio; the song is cut to whole bars close to it.
    double seconds = 30;
    ArtworkShape artwork = ArtworkShape::Square;
    // The file name in the songs folder, without folder.
    std::string fileName;
    // Varies the sound (timbre, pattern) and the artwork.
    std::uint32_t seed = 0;
};

struct DemoPlaylist {
    std::string name;
    // The file name in the playlists folder (".m3u8").
    std::string fileName;
    // Indexes into the song list, in playlist order.
    std::vector<std::size_t> songs;
    // Entries that name files the library does not have, written after the songs.
    std::vector<std::string> missingFiles;
};

class DemoCatalogue {
public:
    DemoCatalogue() = delete;

    static constexpr const char* kSongsFolder = "Songs";
    static constexpr const char* kPlaylistsFolder = "Playlists";

    // The 40 songs, in track order.
    [[nodiscard]] static std::vector<DemoSong> songs();

    // The playlists over songs(), at least 25: among them "Warm-up" (23 songs), "Top 10"
    // (exactly 10), "Empty Crate" (none) and "Lost and Found" (naming one missing file).
    [[nodiscard]] static std::vector<DemoPlaylist> playlists(const std::vector<DemoSong>& songs);

    // A key's usual name: "Am", "F#", "Ebm".
    [[nodiscard]] static std::string keyName(int root, bool minor);
};

} // namespace vexo::library
