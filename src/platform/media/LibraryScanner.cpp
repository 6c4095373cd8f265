#include "platform/media/LibraryScanner.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <random>
#include <unordered_map>
#include <unordered_set>

#include <dirent.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include "platform/base/SystemError.h"
#include "platform/ipc/Container.h"
#include "platform/ipc/NotifyCenter.h"
#include "platform/log/Log.h"
#include "platform/media/FolderWalker.h"
#include "platform/media/LibraryIndex.h"
#include "platform/media/PlaylistFile.h"
#include "platform/media/SqliteDatabase.h"
#include "platform/media/TagReader.h"
#include "platform/runtime/AsioRunLoop.h"

namespace vexo::media {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr std::string_view kLogComponent = "media";
constexpr auto kMaximumBatchDuration = std::chrono::milliseconds(500);

// What the index knows of a file (an item's or a playlist's) from earlier scans.
struct Known {
    std::int64_t id = 0;
    std::int64_t modifiedNanoseconds = 0;
    std::int64_t size = 0;
    bool present = false;
    bool seen = false;
};

using KnownByPath = std::unordered_map<std::string, Known>;

bool fileHasGone(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

// One scan's state: the connection, its statements and the open write transaction.
class ScanRun {
public:
    ScanRun(SqliteDatabase& database, std::size_t batchSize)
        : m_database(database),
          m_batchSize(std::max<std::size_t>(1, batchSize)),
          m_random(std::random_device{}()) {}

    bool prepare() {
        m_upsertItem = m_database.prepare(
            "INSERT INTO items (persistent_id, path, present, modified_ns, size, title, artist, album,"
            " duration, media_type, has_artwork, bpm, initial_key)"
            " VALUES (?1, ?2, 1, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12)"
            " ON CONFLICT(path) DO UPDATE SET present = 1, modified_ns = excluded.modified_ns,"
            " size = excluded.size, title = excluded.title, artist = excluded.artist,"
            " album = excluded.album, duration = excluded.duration, media_type = excluded.media_type,"
            " has_artwork = excluded.has_artwork, bpm = excluded.bpm, initial_key = excluded.initial_key"
            " RETURNING persistent_id");
        m_putArtwork = m_database.prepare("INSERT OR REPLACE INTO artwork (item_id, data) VALUES (?1, ?2)");
        m_deleteArtwork = m_database.prepare("DELETE FROM artwork WHERE item_id = ?1");
        m_markItemGone = m_database.prepare("UPDATE items SET present = 0 WHERE persistent_id = ?1");
        m_upsertPlaylist =
            m_database.prepare("INSERT INTO playlists (persistent_id, path, present, modified_ns, size, name)"
                               " VALUES (?1, ?2, 1, ?3, ?4, ?5)"
                               " ON CONFLICT(path) DO UPDATE SET present = 1, modified_ns = excluded.modified_ns,"
                               " size = excluded.size, name = excluded.name"
                               " RETURNING persistent_id");
        m_deleteEntries = m_database.prepare("DELETE FROM playlist_entries WHERE playlist_id = ?1");
        m_insertEntry =
            m_database.prepare("INSERT INTO playlist_entries (playlist_id, position, path) VALUES (?1, ?2, ?3)");
        m_markPlaylistGone = m_database.prepare("UPDATE playlists SET present = 0 WHERE persistent_id = ?1");
        return m_upsertItem.isValid() && m_putArtwork.isValid() && m_deleteArtwork.isValid() &&
               m_markItemGone.isValid() && m_upsertPlaylist.isValid() && m_deleteEntries.isValid() &&
               m_insertEntry.isValid() && m_markPlaylistGone.isValid();
    }

    std::optional<KnownByPath> load(std::string_view table) {
        KnownByPath known;
        auto statement =
            m_database.prepare("SELECT persistent_id, path, modified_ns, size, present FROM " + std::string(table));
        SqliteStatement::Step step;
        while ((step = statement.step()) == SqliteStatement::Step::Row) {
            m_usedIDs.insert(statement.integer(0));
            known.emplace(statement.text(1), Known{statement.integer(0), statement.integer(2), statement.integer(3),
                                                   statement.integer(4) != 0, false});
        }
        if (step == SqliteStatement::Step::Error)
            return std::nullopt;
        return known;
    }

    // Writes one item; its identifier, or nothing on a write error.
    std::optional<std::int64_t> putItem(const FolderWalker::File& file, const TagReader::Track& track,
                                        std::optional<std::int64_t> knownID) {
        if (!beginWrite())
            return std::nullopt;
        for (int attempt = 0; attempt < 8; ++attempt) {
            const std::int64_t id = knownID ? *knownID : newID();
            m_upsertItem.reset();
            m_upsertItem.bind(1, id)
                .bind(2, file.path.native())
                .bind(3, file.modifiedNanoseconds)
                .bind(4, static_cast<std::int64_t>(file.size))
                .bind(5, track.title)
                .bind(6, track.artist)
                .bind(7, track.albumTitle)
                .bind(8, track.duration)
                .bind(9, static_cast<std::int64_t>(track.mediaType))
                .bind(10, static_cast<std::int64_t>(track.artwork ? 1 : 0))
                .bind(11, track.beatsPerMinute)
                .bind(12, track.initialKey);
            const auto step = m_upsertItem.step();
            if (step == SqliteStatement::Step::Row) {
                const std::int64_t stored = m_upsertItem.integer(0);
                m_upsertItem.reset();
                if (!putArtwork(stored, track.artwork))
                    return std::nullopt;
                return endWrite() ? std::optional(stored) : std::nullopt;
            }
            m_upsertItem.reset();
            // Another scanner took this random identifier for another path meanwhile: draw again.
            if (!isPrimaryKeyClash() || knownID)
                return std::nullopt;
        }
        return std::nullopt;
    }

    bool markItemGone(std::int64_t id) {
        if (!beginWrite())
            return false;
        m_markItemGone.reset();
        m_markItemGone.bind(1, id);
        return m_markItemGone.run() && endWrite();
    }

    // Writes one playlist and its entries; false on a write error.
    bool putPlaylist(const FolderWalker::File& file, const PlaylistFile::Contents& contents,
                     std::optional<std::int64_t> knownID) {
        if (!beginWrite())
            return false;
        std::optional<std::int64_t> stored;
        for (int attempt = 0; attempt < 8 && !stored; ++attempt) {
            m_upsertPlaylist.reset();
            m_upsertPlaylist.bind(1, knownID ? *knownID : newID())
                .bind(2, file.path.native())
                .bind(3, file.modifiedNanoseconds)
                .bind(4, static_cast<std::int64_t>(file.size))
                .bind(5, contents.name);
            if (m_upsertPlaylist.step() == SqliteStatement::Step::Row)
                stored = m_upsertPlaylist.integer(0);
            m_upsertPlaylist.reset();
            if (!stored && (!isPrimaryKeyClash() || knownID))
                return false;
        }
        if (!stored)
            return false;
        m_deleteEntries.reset();
        m_deleteEntries.bind(1, *stored);
        if (!m_deleteEntries.run())
            return false;
        std::int64_t position = 0;
        for (const auto& entry : contents.entries) {
            m_insertEntry.reset();
            m_insertEntry.bind(1, *stored).bind(2, position++).bind(3, entry.native());
            if (!m_insertEntry.run())
                return false;
        }
        return endWrite();
    }

    bool markPlaylistGone(std::int64_t id) {
        if (!beginWrite())
            return false;
        m_markPlaylistGone.reset();
        m_markPlaylistGone.bind(1, id);
        return m_markPlaylistGone.run() && endWrite();
    }

    bool commit() {
        if (!m_inTransaction)
            return true;
        m_inTransaction = false;
        return m_database.execute("COMMIT").hasValue();
    }

    void rollback() {
        if (m_inTransaction)
            (void)m_database.execute("ROLLBACK");
        m_inTransaction = false;
    }

    Error lastError() const { return m_database.lastError(); }

private:
    bool beginWrite() {
        if (m_inTransaction)
            return true;
        if (!m_database.execute("BEGIN IMMEDIATE"))
            return false;
        m_inTransaction = true;
        m_batchStart = Clock::now();
        m_writesInBatch = 0;
        return true;
    }

    bool endWrite() {
        if (++m_writesInBatch < m_batchSize && Clock::now() - m_batchStart < kMaximumBatchDuration)
            return true;
        return commit();
    }

    bool putArtwork(std::int64_t id, const std::optional<std::vector<std::uint8_t>>& artwork) {
        SqliteStatement& statement = artwork ? m_putArtwork : m_deleteArtwork;
        statement.reset();
        statement.bind(1, id);
        if (artwork)
            statement.bind(2, std::span<const std::uint8_t>(*artwork));
        return statement.run();
    }

    bool isPrimaryKeyClash() const {
        return m_database.errorMessage().find("UNIQUE constraint failed") != std::string::npos &&
               m_database.errorMessage().find(".persistent_id") != std::string::npos;
    }

    // A random identifier other than 0 that no row of this index has.
    std::int64_t newID() {
        for (;;) {
            const std::int64_t id = LibraryIndex::stored(m_random());
            if (id != 0 && m_usedIDs.insert(id).second)
                return id;
        }
    }

    SqliteDatabase& m_database;
    std::size_t m_batchSize;
    std::mt19937_64 m_random;
    std::unordered_set<std::int64_t> m_usedIDs;
    bool m_inTransaction = false;
    std::size_t m_writesInBatch = 0;
    Clock::time_point m_batchStart;
    SqliteStatement m_upsertItem;
    SqliteStatement m_putArtwork;
    SqliteStatement m_deleteArtwork;
    SqliteStatement m_markItemGone;
    SqliteStatement m_upsertPlaylist;
    SqliteStatement m_deleteEntries;
    SqliteStatement m_insertEntry;
    SqliteStatement m_markPlaylistGone;
};

Error failure(Error error) {
    log::debug(kLogComponent, error.message());
    return error;
}

// A clear reason when `folder` cannot be scanned at all.
Expected<void> checkFolder(const fs::path& folder) {
    struct stat status {};
    if (::stat(folder.c_str(), &status) != 0)
        return systemError(errno, folder.string());
    if (!S_ISDIR(status.st_mode))
        return Error(ErrorKind::InvalidData, folder.string() + " is not a folder");
    DIR* stream = ::opendir(folder.c_str());
    if (stream == nullptr)
        return systemError(errno, folder.string());
    ::closedir(stream);
    return {};
}

void postChange(const std::string& group) {
    const auto container = ipc::Container::pathForGroup(group);
    if (!container) {
        log::warning(kLogComponent, "no container for group \"" + group + "\"; the library change is not announced");
        return;
    }
    // Posting needs no loop to run; a centre needs one to exist.
    bool posted;
    if (runtime::RunLoop* loop = runtime::RunLoop::current()) {
        posted =
            ipc::NotifyCenter::forContainer(*container, *loop)->post(MediaLibrary::kCrossProcessChangeNotification);
    } else {
        runtime::AsioRunLoop privateLoop;
        posted = ipc::NotifyCenter(*container, privateLoop).post(MediaLibrary::kCrossProcessChangeNotification);
    }
    if (!posted)
        log::warning(kLogComponent, "could not announce the library change in " + container->string());
}

} // namespace

LibraryScanner::LibraryScanner(fs::path indexPath, Options options)
    : m_indexPath(std::move(indexPath)),
      m_options(std::move(options)) {}

Expected<LibraryScanner::Summary> LibraryScanner::scan(const fs::path& folder, const ProgressCallback& progress) {
    const auto start = Clock::now();
    if (auto usable = checkFolder(folder); !usable)
        return failure(std::move(usable).error());
    std::error_code code;
    const fs::path root = fs::canonical(fs::absolute(folder), code);
    if (code)
        return failure(systemError(code, folder.string()));
    auto opened = LibraryIndex::open(m_indexPath);
    if (!opened)
        return failure(std::move(opened).error());
    SqliteDatabase& database = **opened;
    ScanRun run(database, m_options.batchSize);
    if (!run.prepare())
        return failure(database.lastError().withContext(m_indexPath.string()));

    Summary summary;
    summary.folder = root;
    auto report = [&](Progress::Phase phase, std::size_t done, std::size_t total) {
        if (progress)
            progress(Progress{phase, done, total});
    };

    report(Progress::Phase::Listing, 0, 0);
    FolderWalker::Listing listing = FolderWalker::list(
        root, [](const fs::path& path) { return TagReader::isAudioFile(path) || PlaylistFile::isPlaylistFile(path); },
        [&](std::size_t found) { report(Progress::Phase::Listing, found, 0); });
    for (auto& unreadable : listing.unreadable)
        summary.problems.push_back({std::move(unreadable.path), std::move(unreadable.reason)});

    std::vector<const FolderWalker::File*> audioFiles;
    std::vector<const FolderWalker::File*> playlistFiles;
    for (const auto& file : listing.files)
        (TagReader::isAudioFile(file.path) ? audioFiles : playlistFiles).push_back(&file);
    summary.audioFiles = audioFiles.size();
    summary.playlistFiles = playlistFiles.size();
    const std::size_t total = listing.files.size();
    std::size_t done = 0;

    auto writeFailed = [&]() -> Error {
        Error error = run.lastError().withContext("cannot write " + m_indexPath.string());
        run.rollback();
        return failure(std::move(error));
    };

    auto knownItems = run.load("items");
    auto knownPlaylists = run.load("playlists");
    if (!knownItems || !knownPlaylists)
        return failure(run.lastError().withContext("cannot read " + m_indexPath.string()));

    // Stops early, keeping the batches written; nothing is marked gone, since the files not
    // yet visited were not checked. The error to return once cancelled.
    auto cancelled = [&]() -> std::optional<Error> {
        if (!m_options.isCancelled || !m_options.isCancelled())
            return std::nullopt;
        if (!run.commit())
            return writeFailed();
        if (summary.changedIndex() && !m_options.applicationGroup.empty())
            postChange(m_options.applicationGroup);
        return failure(
            Error(ErrorKind::Cancelled, "interrupted; the " + std::to_string(done) + " files read so far are kept"));
    };

    report(Progress::Phase::Reading, 0, total);
    for (const FolderWalker::File* file : audioFiles) {
        if (auto stopped = cancelled())
            return std::move(*stopped);
        const auto found = knownItems->find(file->path.native());
        Known* known = found != knownItems->end() ? &found->second : nullptr;
        if (known != nullptr)
            known->seen = true;
        if (known != nullptr && known->present && known->modifiedNanoseconds == file->modifiedNanoseconds &&
            known->size == static_cast<std::int64_t>(file->size)) {
            ++summary.itemsUnchanged;
        } else if (const auto track = TagReader::read(file->path)) {
            if (!run.putItem(*file, *track, known ? std::optional(known->id) : std::nullopt))
                return writeFailed();
            ++(known != nullptr ? summary.itemsUpdated : summary.itemsAdded);
        } else {
            // An item already known keeps what it had; the file is read again next time.
            summary.problems.push_back({file->path, track.error().message()});
        }
        report(Progress::Phase::Reading, ++done, total);
    }
    // Asked of the file itself, not of the walk: a file in a folder that could not be read
    // has not gone.
    for (const auto& [path, known] : *knownItems) {
        if (known.seen || !known.present)
            continue;
        if (fileHasGone(path)) {
            if (!run.markItemGone(known.id))
                return writeFailed();
            ++summary.itemsGone;
        }
    }

    // After the items, so that a playlist's entries are checked against the files now there.
    for (const FolderWalker::File* file : playlistFiles) {
        if (auto stopped = cancelled())
            return std::move(*stopped);
        const auto found = knownPlaylists->find(file->path.native());
        Known* known = found != knownPlaylists->end() ? &found->second : nullptr;
        if (known != nullptr)
            known->seen = true;
        if (known != nullptr && known->present && known->modifiedNanoseconds == file->modifiedNanoseconds &&
            known->size == static_cast<std::int64_t>(file->size)) {
            // Unchanged; its entries meet newly indexed files at query time.
        } else if (const auto contents = PlaylistFile::read(file->path)) {
            if (!run.putPlaylist(*file, *contents, known ? std::optional(known->id) : std::nullopt))
                return writeFailed();
            ++(known != nullptr ? summary.playlistsUpdated : summary.playlistsAdded);
        } else {
            summary.problems.push_back({file->path, contents.error().message()});
        }
        report(Progress::Phase::Reading, ++done, total);
    }
    for (const auto& [path, known] : *knownPlaylists) {
        if (known.seen || !known.present)
            continue;
        if (fileHasGone(path)) {
            if (!run.markPlaylistGone(known.id))
                return writeFailed();
            ++summary.playlistsGone;
        }
    }
    if (!run.commit())
        return writeFailed();

    for (const auto& problem : summary.problems)
        log::debug(kLogComponent, "skipped " + problem.path.string() + ": " + problem.reason);
    if (summary.changedIndex() && !m_options.applicationGroup.empty())
        postChange(m_options.applicationGroup);
    summary.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    return summary;
}

} // namespace vexo::media
