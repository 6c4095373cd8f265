#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/base/Expected.h"
#include "platform/media/MediaType.h"

// What the library keeps of one audio file, read with TagLib: title, artist, album, length,
// kind, tempo, musical key and the embedded picture. MP3, FLAC, Ogg Vorbis, Opus, Speex and FLAC, MP4 (M4A, M4B,
// M4V), WAV, AIFF, WavPack, Monkey's Audio, Musepack, WMA and TrueAudio files are read.
namespace vexo::media {

class TagReader {
public:
    TagReader() = delete;

    // A picture larger than this is left out of the index; covers are far smaller.
    static constexpr std::size_t kMaximumArtworkBytes = 16u << 20;

    struct Track {
        // The title tag, or the file name without its extension when the tag is empty.
        std::string title;
        std::string artist;
        std::string albumTitle;
        // Seconds; 0 when the file does not tell.
        double duration = 0;
        MediaType mediaType = MediaType::Music;
        // The tempo tag rounded to whole beats per minute; 0 when absent or not a tempo.
        std::int64_t beatsPerMinute = 0;
        // The musical key as the tag writes it ("Am", "8A", "F# minor"), trimmed; empty when
        // absent.
        std::string initialKey;
        std::optional<std::vector<std::uint8_t>> artwork;
    };

    // Tempos above this are taken for a damaged tag and read as absent.
    static constexpr std::int64_t kMaximumBeatsPerMinute = 999;
    // A key text longer than this (bytes) is cut at a character boundary.
    static constexpr std::size_t kMaximumKeyBytes = 32;

    // The tempo in whole beats per minute from a tag's text ("128", " 127.6 ", "98 BPM");
    // 0 when it does not start with a positive number of at most kMaximumBeatsPerMinute.
    [[nodiscard]] static std::int64_t beatsPerMinuteFromText(std::string_view text);

    // True when `path` has the extension (in any case) of a kind of file read().
    [[nodiscard]] static bool isAudioFile(const std::filesystem::path& path);

    // Reads the tags of the file at `path`. Fails with the system's reason when the file
    // cannot be opened (NotFound when it is missing), InvalidData when it is not a valid file
    // of its kind or holds no audio. Thread-safe: each call opens the file afresh.
    [[nodiscard]] static Expected<Track> read(const std::filesystem::path& path);
};

} // namespace vexo::media
