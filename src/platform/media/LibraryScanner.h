#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/base/Expected.h"
#include "platform/media/MediaLibrary.h"

// Builds and refreshes the index of a music folder: every audio file in it (recursively) is
// an item, every .m3u/.m3u8 file a playlist.
//
// A path gets a random persistent identifier the first time it is seen and keeps it for
// good: a rescan keeps it, a file that goes keeps its item (without an asset URL) and gets
// it back when it returns. Paths are canonical, so a file reached through symbolic links is
// one item; symbolic links to folders are followed once, and names starting with "." are
// skipped. A rescan reads the tags only of files whose modification time or size changed.
// Changes are committed in small batches, so an interrupted scan keeps what it did; other
// processes keep querying throughout.
namespace vexo::media {

class LibraryScanner {
public:
    struct Options {
        // The group whose container receives MediaLibrary::kCrossProcessChangeNotification
        // after a scan that changed something; empty posts none.
        std::string applicationGroup{MediaLibrary::kDefaultApplicationGroup};
        // Written files per transaction at most; a batch also ends after half a second.
        std::size_t batchSize = 256;
        // Asked before each file (on the scanning thread); true stops the scan, keeping what
        // it wrote so far and marking nothing as gone.
        std::function<bool()> isCancelled;
    };

    struct Progress {
        enum class Phase { Listing, Reading };
        Phase phase = Phase::Listing;
        // Listing: files found so far. Reading: files (audio and playlists) done of the total.
        std::size_t filesDone = 0;
        std::size_t filesTotal = 0;
    };
    using ProgressCallback = std::function<void(const Progress&)>;

    // A file or folder the scan could not read; the scan went on without it.
    struct Problem {
        std::filesystem::path path;
        std::string reason;
    };

    struct Summary {
        std::filesystem::path folder;
        std::size_t audioFiles = 0;
        std::size_t itemsAdded = 0;
        // Changed on disk since the last scan, or back after having gone.
        std::size_t itemsUpdated = 0;
        std::size_t itemsUnchanged = 0;
        // Present at the last scan, gone now.
        std::size_t itemsGone = 0;
        std::size_t playlistFiles = 0;
        std::size_t playlistsAdded = 0;
        std::size_t playlistsUpdated = 0;
        std::size_t playlistsGone = 0;
        std::vector<Problem> problems;
        double seconds = 0;

        [[nodiscard]] bool changedIndex() const {
            return itemsAdded + itemsUpdated + itemsGone + playlistsAdded + playlistsUpdated + playlistsGone > 0;
        }
    };

    // A scanner of the index at `indexPath` (made when missing). Opens nothing yet.
    explicit LibraryScanner(std::filesystem::path indexPath, Options options);
    explicit LibraryScanner(std::filesystem::path indexPath)
        : LibraryScanner(std::move(indexPath), Options{}) {}

    // Scans `folder`, calling `progress` (when set) on the calling thread as it goes. Every
    // item whose file has gone loses its asset URL, whichever folder it was found in; items of
    // other folders stay otherwise, as do those in a folder that could not be read.
    // Fails when the folder is missing (NotFound) or unreadable, the index cannot be opened
    // (as LibraryIndex::open), writing it fails (batches committed before stay), or the scan
    // was cancelled (Cancelled; what it read is kept). Unreadable or damaged files inside the
    // folder do not stop the scan: they are listed in the summary's problems.
    [[nodiscard]] Expected<Summary> scan(const std::filesystem::path& folder, const ProgressCallback& progress = {});

private:
    std::filesystem::path m_indexPath;
    Options m_options;
};

} // namespace vexo::media
