#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vexo::testing {

// Small silent audio files made on the spot and tagged with TagLib. WAVE comes from the
// program's own writer (AudioFileWriter); the others are written here without an encoder,
// each a well-formed container of its kind as far as a tag reader looks (headers, lengths,
// tags), the audio itself silence or left out.
class AudioFixture {
public:
    AudioFixture() = delete;

    enum class Format { Wav, Mp3, Flac, OggVorbis, Opus, M4a };

    struct Tags {
        Tags() = default;
        // The fields most callers set, in this order; tempo and key are set by name.
        Tags(std::string title, std::string artist, std::string album = {}, std::string genre = {},
             std::optional<std::vector<std::uint8_t>> artwork = {}, std::optional<int> mp4MediaKind = {})
            : title(std::move(title)),
              artist(std::move(artist)),
              album(std::move(album)),
              genre(std::move(genre)),
              artwork(std::move(artwork)),
              mp4MediaKind(mp4MediaKind) {}

        std::string title;
        std::string artist;
        std::string album;
        std::string genre;
        std::optional<std::vector<std::uint8_t>> artwork;
        // MP4's "stik" media kind (2 audiobook, 21 podcast), M4A only.
        std::optional<int> mp4MediaKind;
        // Tempo and key as text, where each format keeps them: ID3v2 TBPM and TKEY, Xiph BPM and
        // INITIALKEY, MP4 tmpo (the whole number of the text) and the freeform
        // "----:com.apple.iTunes:initialkey" atom. Empty: no such tag.
        std::string bpm;
        std::string initialKey;
        // The key under the other name some taggers use: ID3v2 TXXX:KEY, Xiph KEY, MP4
        // "----:com.apple.iTunes:KEY".
        bool keyUnderOtherName = false;
    };

    // The usual extension of `format`, with its dot.
    static std::string extension(Format format);

    // Writes a file of `seconds` at `path` and tags it. False when TagLib could not tag it.
    static bool write(const std::filesystem::path& path, Format format, double seconds, const Tags& tags);

    // Bytes that stand for an embedded picture (a JPEG's markers around `seed`-dependent data).
    static std::vector<std::uint8_t> pictureBytes(int seed);
};

} // namespace vexo::testing
