#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/base/Expected.h"
#include "platform/base/UserDirectories.h"
#include "platform/media/MediaItem.h"
#include "platform/media/MediaPlaylist.h"
#include "platform/media/MediaType.h"

namespace vexo::ipc {
class NotifyCenter;
}
namespace vexo::runtime {
class RunLoop;
}

// The local media library: queries of items and playlists over the index that
// LibraryScanner writes, and the library-change notification.
//
// Every process that opens the same index sees the same items under the same persistent
// identifiers; this is how the watch and the phone agree on a song. Queries read the index
// as it is at the moment of the call (a scan running in another process shows its committed
// batches), and may be made from any thread: they take turns on one connection.
namespace vexo::media {

class SqliteDatabase;

class MediaLibrary : public std::enable_shared_from_this<MediaLibrary> {
public:
    // Posted on the default notification centre, with the library as sender, when the
    // library changed while change notifications are being generated.
    static constexpr std::string_view kDidChangeNotification = "MPMediaLibraryDidChangeNotification";
    // The cross-process notification that a scan posts when it changed the index.
    static constexpr std::string_view kCrossProcessChangeNotification = "com.vexo.media-library-changed";
    // The application group whose container carries the cross-process notification, unless
    // another is given.
    static constexpr std::string_view kDefaultApplicationGroup = "group.com.vexo.remote";

    // Whether playlists without a matching item are listed; the host platform's query omits
    // them, a listing for people may not.
    enum class EmptyPlaylists { Omit, Include };

    // `configured` (VEXO_MEDIA_LIBRARY) when given and not empty, else
    // `<data home>/vexo/media-library.sqlite`, the data home being `directories.dataHome`
    // when absolute, else `<home>/.local/share` (home: `directories.home`, else the password
    // database's, else "/").
    [[nodiscard]] static std::filesystem::path defaultPath(const std::optional<std::string>& configured,
                                                           const UserDirectories& directories);

    // Opens the index at `path`, making an empty one (and its folder) when there is none.
    // Fails, with a log line, as LibraryIndex::open: when the file cannot be opened or is not
    // a media library index.
    [[nodiscard]] static Expected<std::shared_ptr<MediaLibrary>> open(const std::filesystem::path& path);

    // Stops generating change notifications. On another thread than the one that began them,
    // the registration is removed on that loop. REQUIRES: that loop outlives the library, or
    // the library goes on the loop's thread.
    ~MediaLibrary();

    MediaLibrary(const MediaLibrary&) = delete;
    MediaLibrary& operator=(const MediaLibrary&) = delete;
    MediaLibrary(MediaLibrary&&) = delete;
    MediaLibrary& operator=(MediaLibrary&&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return m_path; }

    // The item query filtered by one persistent identifier: that item, or nothing. An item
    // whose file has gone is found, without an asset URL. Any thread.
    [[nodiscard]] std::vector<MediaItem> itemsWithPersistentID(PersistentID persistentID) const;

    // Every item, gone ones included, by title (ignoring ASCII case) then identifier. Any
    // thread.
    [[nodiscard]] std::vector<MediaItem> items() const;

    // The playlist query grouped by playlist, with a media-type filter: each playlist holds
    // only its items whose type matches `filter`, and a playlist with none is left out unless
    // `empty` says Include. Playlists come by name (ignoring ASCII case), then by identifier;
    // items in playlist order. Playlist files that have gone are not listed. Any thread.
    [[nodiscard]] std::vector<MediaPlaylist> playlists(MediaType filter,
                                                       EmptyPlaylists empty = EmptyPlaylists::Omit) const;

    // The embedded picture of an item, or nothing. Any thread.
    [[nodiscard]] std::optional<std::vector<std::uint8_t>> artworkDataForPersistentID(PersistentID persistentID) const;

    // From now on, a cross-process kCrossProcessChangeNotification in the container of
    // `applicationGroup` is posted in-process as kDidChangeNotification on the run loop that is
    // current on the calling thread. Calls nest: each needs its own end call. Without a
    // current loop or a container nothing is delivered, with a log line. Loop thread only.
    void beginGeneratingLibraryChangeNotifications(std::string_view applicationGroup = kDefaultApplicationGroup);

    // Balances one begin call; the last one stops the delivery. Loop thread only.
    void endGeneratingLibraryChangeNotifications();

private:
    MediaLibrary(std::filesystem::path path, std::unique_ptr<SqliteDatabase> database);

    void stopGenerating();

    std::filesystem::path m_path;
    mutable std::mutex m_mutex;
    std::unique_ptr<SqliteDatabase> m_database;

    int m_generatingCount = 0;
    std::shared_ptr<ipc::NotifyCenter> m_notifyCenter;
    runtime::RunLoop* m_notifyLoop = nullptr;
    std::thread::id m_notifyThread;
    // The callback holds this token weakly, so that a post that is already on its way when
    // the library goes finds nothing to call.
    std::shared_ptr<int> m_notifyToken;
};

} // namespace vexo::media
