#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace vexo::testing {

// Small silent audio files made on the spot and tagged with TagLib, so that the media tests
// and benchmarks need no encoder. Each is a well-formed container of its kind as far as a tag
// reader looks (headers, lengths, tags); the audio itself is silence or left out.
class AudioFixture {
public:
    AudioFixture() = delete;

    enum class Format { Wav, Mp3, Flac, OggVorbis, Opus, M4a };

    struct Tags {
        std::string title;
        std::string artist;
        std::string album;
        std::string genre;
        std::optional<std::vector<std::uint8_t>> artwork;
        // MP4's "stik" media kind (2 audiobook, 21 podcast), M4A only.
        std::optional<int> mp4MediaKind;
    };

    // The usual extension of `format`, with its dot.
    static std::string extension(Format format);

    // Writes a file of `seconds` at `path` and tags it. False when TagLib could not tag it.
    static bool write(const std::filesystem::path& path, Format format, double seconds, const Tags& tags);

    // Bytes that stand for an embedded picture (a JPEG's markers around `seed`-dependent data).
    static std::vector<std::uint8_t> pictureBytes(int seed);
};

} // namespace vexo::testing
