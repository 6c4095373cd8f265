#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/base/Expected.h"

// M3U and M3U8 playlist files: one entry per line, the rest comments.
//
// Entries are paths relative to the playlist's folder, absolute paths or file:// URLs; other
// URLs (streams) are skipped. "#EXTINF" and every other line starting with "#" are comments,
// except "#PLAYLIST:", which names the playlist. Lines may end in LF, CRLF or CR; a UTF-8
// byte order mark is ignored. An .m3u file that is not valid UTF-8 is read as Latin-1, the
// encoding such files traditionally have; an .m3u8 file is always UTF-8.
namespace vexo::media {

class PlaylistFile {
public:
    // Larger files are refused rather than read into memory.
    static constexpr std::size_t kMaximumBytes = 16u << 20;

    // The playlist's name (the "#PLAYLIST:" directive, else the file name without extension)
    // and its entries as absolute, lexically normal paths, in order.
    struct Contents {
        std::string name;
        std::vector<std::filesystem::path> entries;
        // Lines that named no local file (stream URLs, malformed file URLs).
        std::size_t skippedLines = 0;
    };

    // True for the extensions .m3u and .m3u8, in any case.
    [[nodiscard]] static bool isPlaylistFile(const std::filesystem::path& path);

    // Parses the text of the playlist file `path` without touching the disk. REQUIRES: `path`
    // is absolute.
    [[nodiscard]] static Contents parse(std::string_view text, const std::filesystem::path& path);

    // Reads and parses the file at `path` (absolute), then replaces every entry that exists by
    // its canonical path, so that entries match the scanner's canonical item paths whatever
    // symbolic links they go through. Fails with the system's reason when the file cannot be
    // read (NotFound when it is missing), TooLarge above kMaximumBytes.
    [[nodiscard]] static Expected<Contents> read(const std::filesystem::path& path);
};

} // namespace vexo::media
