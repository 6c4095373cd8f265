#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "DemoCatalogue.h"

// Writes the demonstration music library into a folder:
//
//   FOLDER/.vexo-demo-library   the marker: this folder was made by the demo command
//   FOLDER/Songs/NN Title.wav   the songs, 16-bit mono WAVE with ID3v2.3 tags and covers
//   FOLDER/Playlists/*.m3u8     the playlists, UTF-8, entries relative to the playlist
//
// A folder is written only when it is new, empty, or has the marker; a folder of someone
// else's is never touched. Writing again into a marked folder rewrites the same files with
// the same bytes. Each file appears whole: it is written under another name and renamed.
namespace vexo::library {

class DemoLibraryWriter {
public:
    DemoLibraryWriter() = delete;

    static constexpr const char* kMarkerFileName = ".vexo-demo-library";

    struct Progress {
        enum class Phase { Songs, Playlists };
        Phase phase = Phase::Songs;
        std::size_t done = 0;
        std::size_t total = 0;
    };
    using ProgressCallback = std::function<void(const Progress&)>;

    struct WrittenSong {
        DemoSong song;
        std::filesystem::path path;
        double seconds = 0;
        // Pixel size of the cover; 0 x 0 when the song has none.
        int artworkWidth = 0;
        int artworkHeight = 0;
    };

    struct WrittenPlaylist {
        DemoPlaylist playlist;
        std::filesystem::path path;
    };

    struct Summary {
        std::filesystem::path folder;
        std::vector<WrittenSong> songs;
        std::vector<WrittenPlaylist> playlists;
        std::uintmax_t bytes = 0;
    };

    // Writes the library into `folder`, making it (and its parents) when missing. Calls
    // `progress` (when set) after each file and `isCancelled` (when set) before each song;
    // on cancellation stops, keeping the files written. Nothing, with the reason in `error`,
    // when the folder is not a folder, is not empty and has no marker, cannot be made or
    // written, or the run was cancelled.
    [[nodiscard]] static std::optional<Summary> write(const std::filesystem::path& folder,
                                                      const ProgressCallback& progress,
                                                      const std::function<bool()>& isCancelled, std::string* error);

    // The cover's pixel size for `shape`; 0 x 0 for none.
    [[nodiscard]] static std::pair<int, int> artworkSize(ArtworkShape shape);
};

} // namespace vexo::library
