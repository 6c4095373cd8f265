#include "platform/media/MediaLibrary.h"

#include <cstdlib>
#include <unordered_map>

#include <pwd.h>
#include <unistd.h>

#include "platform/ipc/Container.h"
#include "platform/ipc/NotifyCenter.h"
#include "platform/log/Log.h"
#include "platform/media/FileURL.h"
#include "platform/media/LibraryIndex.h"
#include "platform/media/SqliteDatabase.h"
#include "platform/runtime/NotificationCenter.h"
#include "platform/runtime/RunLoop.h"

namespace vexo::media {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kLogComponent = "media";

// Identifiers are unsigned but stored signed: those from 2^63 up read negative, so every
// "ORDER BY id < 0, id" below puts them after the others, in unsigned order.

// The columns that make a MediaItem, in the order itemFromRow() reads them from `first` on.
constexpr std::string_view kItemColumns =
    "i.persistent_id, i.path, i.present, i.title, i.artist, i.album, i.duration, i.media_type, "
    "i.has_artwork, i.bpm, i.initial_key, a.version, a.bpm, a.first_beat, a.musical_key, a.loudness, a.true_peak, "
    "a.failure";
// Every query of items joins what the analyser found, when it did.
constexpr std::string_view kAnalysisJoin = " LEFT JOIN analysis a ON a.item_id = i.persistent_id";

fs::path homeDirectory(const std::optional<std::string>& home) {
    if (home && !home->empty())
        return *home;
    if (const passwd* entry = ::getpwuid(::geteuid()); entry != nullptr && entry->pw_dir != nullptr)
        return entry->pw_dir;
    return "/";
}

// Reads the item at column `first` of the statement's current row.
MediaItem itemFromRow(const SqliteStatement& row, int first, const std::weak_ptr<const MediaLibrary>& library) {
    MediaItem::Properties properties;
    properties.persistentID = LibraryIndex::persistentID(row.integer(first));
    if (row.integer(first + 2) != 0)
        properties.assetURL = FileURL::fromNativePath(row.textView(first + 1));
    properties.title = row.text(first + 3);
    properties.artist = row.text(first + 4);
    properties.albumTitle = row.text(first + 5);
    properties.playbackDuration = row.real(first + 6);
    properties.mediaType = static_cast<MediaType>(row.integer(first + 7));
    properties.beatsPerMinute = row.integer(first + 9);
    properties.initialKey = row.text(first + 10);
    if (!row.isNull(first + 11)) {
        ItemAnalysis analysis;
        analysis.version = static_cast<int>(row.integer(first + 11));
        analysis.beatsPerMinute = row.optionalReal(first + 12);
        analysis.firstBeatSeconds = row.optionalReal(first + 13);
        analysis.key = row.optionalText(first + 14);
        analysis.loudnessLUFS = row.optionalReal(first + 15);
        analysis.truePeakDBTP = row.optionalReal(first + 16);
        analysis.failure = row.optionalText(first + 17);
        properties.analysis = std::move(analysis);
    }
    return MediaItem(std::move(properties), library, row.integer(first + 8) != 0);
}

} // namespace

fs::path MediaLibrary::defaultPath(const std::optional<std::string>& configured, const UserDirectories& directories) {
    if (configured && !configured->empty())
        return *configured;
    fs::path dataHome;
    // The XDG base-directory rules ignore a relative data home.
    if (const auto& value = directories.dataHome; value && fs::path(*value).is_absolute())
        dataHome = *value;
    else
        dataHome = homeDirectory(directories.home) / ".local" / "share";
    return dataHome / "vexo" / "media-library.sqlite";
}

Expected<std::shared_ptr<MediaLibrary>> MediaLibrary::open(const fs::path& path) {
    auto database = LibraryIndex::open(path);
    if (!database) {
        log::warning(kLogComponent, database.error().message());
        return std::move(database).error();
    }
    return std::shared_ptr<MediaLibrary>(new MediaLibrary(path, std::move(database).value()));
}

MediaLibrary::MediaLibrary(fs::path path, std::unique_ptr<SqliteDatabase> database)
    : m_path(std::move(path)),
      m_database(std::move(database)) {}

MediaLibrary::~MediaLibrary() {
    stopGenerating();
}

std::vector<MediaItem> MediaLibrary::itemsWithPersistentID(PersistentID persistentID) const {
    const std::lock_guard lock(m_mutex);
    auto statement = m_database->prepare("SELECT " + std::string(kItemColumns) + " FROM items i" +
                                         std::string(kAnalysisJoin) + " WHERE i.persistent_id = ?1");
    statement.bind(1, LibraryIndex::stored(persistentID));
    std::vector<MediaItem> items;
    SqliteStatement::Step step;
    while ((step = statement.step()) == SqliteStatement::Step::Row)
        items.push_back(itemFromRow(statement, 0, weak_from_this()));
    if (step == SqliteStatement::Step::Error)
        log::warning(kLogComponent, "item query failed: " + m_database->errorMessage());
    return items;
}

std::vector<MediaItem> MediaLibrary::items() const {
    const std::lock_guard lock(m_mutex);
    auto statement =
        m_database->prepare("SELECT " + std::string(kItemColumns) + " FROM items i" + std::string(kAnalysisJoin) +
                            " ORDER BY i.title COLLATE NOCASE, i.title, i.persistent_id < 0, i.persistent_id");
    std::vector<MediaItem> items;
    SqliteStatement::Step step;
    while ((step = statement.step()) == SqliteStatement::Step::Row)
        items.push_back(itemFromRow(statement, 0, weak_from_this()));
    if (step == SqliteStatement::Step::Error)
        log::warning(kLogComponent, "item query failed: " + m_database->errorMessage());
    return items;
}

std::vector<MediaPlaylist> MediaLibrary::playlists(MediaType filter, EmptyPlaylists empty) const {
    struct Collected {
        PersistentID persistentID;
        std::string name;
        std::vector<MediaItem> items;
    };
    const std::lock_guard lock(m_mutex);
    // One read transaction, so that both statements see the same state of the index.
    if (!m_database->execute("BEGIN")) {
        log::warning(kLogComponent, "playlist query failed: " + m_database->errorMessage());
        return {};
    }
    std::vector<Collected> collected;
    std::unordered_map<std::int64_t, std::size_t> indexByID;
    bool failed = false;
    {
        auto statement = m_database->prepare("SELECT persistent_id, name FROM playlists WHERE present = 1"
                                             " ORDER BY name COLLATE NOCASE, name, persistent_id < 0, persistent_id");
        SqliteStatement::Step step;
        while ((step = statement.step()) == SqliteStatement::Step::Row) {
            indexByID.emplace(statement.integer(0), collected.size());
            collected.push_back({LibraryIndex::persistentID(statement.integer(0)), statement.text(1), {}});
        }
        failed = step == SqliteStatement::Step::Error;
    }
    if (!failed) {
        // In the entries' own key order (playlist, position): no sort needed.
        auto statement = m_database->prepare("SELECT e.playlist_id, " + std::string(kItemColumns) +
                                             " FROM playlist_entries e JOIN items i ON i.path = e.path" +
                                             std::string(kAnalysisJoin) +
                                             " WHERE (i.media_type & ?1) != 0 ORDER BY e.playlist_id, e.position");
        statement.bind(1, static_cast<std::int64_t>(filter));
        const auto library = weak_from_this();
        SqliteStatement::Step step;
        while ((step = statement.step()) == SqliteStatement::Step::Row) {
            const auto found = indexByID.find(statement.integer(0));
            if (found != indexByID.end())
                collected[found->second].items.push_back(itemFromRow(statement, 1, library));
        }
        failed = step == SqliteStatement::Step::Error;
    }
    if (failed)
        log::warning(kLogComponent, "playlist query failed: " + m_database->errorMessage());
    (void)m_database->execute("COMMIT");
    if (failed)
        return {};

    std::vector<MediaPlaylist> playlists;
    playlists.reserve(collected.size());
    for (auto& playlist : collected) {
        if (playlist.items.empty() && empty == EmptyPlaylists::Omit)
            continue;
        playlists.emplace_back(playlist.persistentID, std::move(playlist.name), std::move(playlist.items));
    }
    return playlists;
}

std::optional<std::vector<std::uint8_t>> MediaLibrary::artworkDataForPersistentID(PersistentID persistentID) const {
    const std::lock_guard lock(m_mutex);
    auto statement = m_database->prepare("SELECT data FROM artwork WHERE item_id = ?1");
    statement.bind(1, LibraryIndex::stored(persistentID));
    if (statement.step() != SqliteStatement::Step::Row)
        return std::nullopt;
    const auto bytes = statement.blob(0);
    return std::vector<std::uint8_t>(bytes.begin(), bytes.end());
}

void MediaLibrary::beginGeneratingLibraryChangeNotifications(std::string_view applicationGroup) {
    if (m_generatingCount++ > 0)
        return;
    const auto container = ipc::Container::pathForGroup(applicationGroup);
    runtime::RunLoop* loop = runtime::RunLoop::current();
    if (!container || loop == nullptr) {
        log::warning(kLogComponent, container ? "no run loop to deliver library changes on"
                                              : "no container for group \"" + std::string(applicationGroup) +
                                                    "\"; library changes of other processes go unheard");
        return;
    }
    auto centre = ipc::NotifyCenter::forContainer(*container, *loop);
    auto token = std::make_shared<int>(0);
    const bool registered = centre->addObserver(
        token.get(), kCrossProcessChangeNotification, [weak = weak_from_this()](const std::string&) {
            if (const auto library = weak.lock())
                runtime::NotificationCenter::defaultCenter().post(kDidChangeNotification, library.get());
        });
    if (!registered) {
        log::warning(kLogComponent, "cannot listen for library changes in " + container->string());
        return;
    }
    m_notifyCenter = std::move(centre);
    m_notifyLoop = loop;
    m_notifyThread = std::this_thread::get_id();
    m_notifyToken = std::move(token);
}

void MediaLibrary::endGeneratingLibraryChangeNotifications() {
    if (m_generatingCount == 0)
        return;
    if (--m_generatingCount == 0)
        stopGenerating();
}

void MediaLibrary::stopGenerating() {
    if (!m_notifyCenter)
        return;
    auto remove = [centre = std::move(m_notifyCenter), token = std::move(m_notifyToken)] {
        centre->removeObserver(token.get(), kCrossProcessChangeNotification);
    };
    // The token keeps its address, the registration's identity, until the removal is done.
    if (std::this_thread::get_id() == m_notifyThread)
        remove();
    else
        m_notifyLoop->post(std::move(remove));
    m_notifyLoop = nullptr;
}

} // namespace vexo::media
