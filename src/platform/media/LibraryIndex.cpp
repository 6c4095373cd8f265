#include "platform/media/LibraryIndex.h"

#include <initializer_list>
#include <optional>
#include <system_error>

#include "platform/base/SystemError.h"
#include "platform/log/Log.h"

namespace vexo::media {
namespace {

constexpr std::string_view kLogComponent = "media";

constexpr std::string_view kSchema = R"sql(
CREATE TABLE items (
    persistent_id INTEGER PRIMARY KEY,
    path TEXT NOT NULL UNIQUE,
    present INTEGER NOT NULL,
    modified_ns INTEGER NOT NULL,
    size INTEGER NOT NULL,
    title TEXT NOT NULL,
    artist TEXT NOT NULL,
    album TEXT NOT NULL,
    duration REAL NOT NULL,
    media_type INTEGER NOT NULL,
    has_artwork INTEGER NOT NULL,
    bpm INTEGER NOT NULL DEFAULT 0,
    initial_key TEXT NOT NULL DEFAULT ''
);
CREATE TABLE artwork (
    item_id INTEGER PRIMARY KEY,
    data BLOB NOT NULL
);
CREATE TABLE playlists (
    persistent_id INTEGER PRIMARY KEY,
    path TEXT NOT NULL UNIQUE,
    present INTEGER NOT NULL,
    modified_ns INTEGER NOT NULL,
    size INTEGER NOT NULL,
    name TEXT NOT NULL
);
CREATE TABLE playlist_entries (
    playlist_id INTEGER NOT NULL,
    position INTEGER NOT NULL,
    path TEXT NOT NULL,
    PRIMARY KEY (playlist_id, position)
) WITHOUT ROWID;
)sql";

// From version 1: the tempo and key columns. Version 1 never read those tags, so every item
// is marked as changed (a modification time no file has) and the next scan reads it again
// under its own identifier.
constexpr std::string_view kUpgradeFrom1 = R"sql(
ALTER TABLE items ADD COLUMN bpm INTEGER NOT NULL DEFAULT 0;
ALTER TABLE items ADD COLUMN initial_key TEXT NOT NULL DEFAULT '';
UPDATE items SET modified_ns = -1;
)sql";

// The analysis results: made with a new index, and added to one of version 2 (whose items and
// playlists stay as they are).
constexpr std::string_view kAnalysisTable = R"sql(
CREATE TABLE analysis (
    item_id INTEGER PRIMARY KEY,
    version INTEGER NOT NULL,
    modified_ns INTEGER NOT NULL,
    size INTEGER NOT NULL,
    bpm REAL,
    first_beat REAL,
    musical_key TEXT,
    loudness REAL,
    true_peak REAL,
    failure TEXT
);
)sql";

Error failure(Error error) {
    log::debug(kLogComponent, error.message());
    return error;
}

// Why `database`'s last call failed, the message after `prefix`.
Error failure(const SqliteDatabase& database, const std::string& prefix) {
    return failure(database.lastError().withContext(prefix));
}

// The error is taken before the statement goes: the next statement prepared clears it.
Expected<std::int64_t> pragmaValue(SqliteDatabase& database, std::string_view pragma) {
    auto statement = database.prepare("PRAGMA " + std::string(pragma));
    if (statement.step() != SqliteStatement::Step::Row)
        return database.lastError();
    return statement.integer(0);
}

// Runs `statements` in order, stopping at the first that fails.
Expected<void> executeAll(SqliteDatabase& database, std::initializer_list<std::string> statements) {
    for (const auto& statement : statements)
        if (auto done = database.execute(statement); !done)
            return done;
    return {};
}

// Makes the tables unless another process did meanwhile; the immediate transaction makes
// two first openings take turns.
Expected<void> createSchema(SqliteDatabase& database, const std::filesystem::path& path) {
    if (!database.execute("BEGIN IMMEDIATE"))
        return failure(database, path.string());
    const auto version = pragmaValue(database, "user_version");
    const auto tables = [&]() -> std::optional<std::int64_t> {
        auto statement = database.prepare("SELECT count(*) FROM sqlite_master");
        if (statement.step() != SqliteStatement::Step::Row)
            return std::nullopt;
        return statement.integer(0);
    }();
    if (version && *version == 0 && tables == 0) {
        auto created = executeAll(database, {std::string(kSchema), std::string(kAnalysisTable),
                                             "PRAGMA application_id = " + std::to_string(LibraryIndex::kApplicationID),
                                             "PRAGMA user_version = " + std::to_string(LibraryIndex::kSchemaVersion)});
        if (!created) {
            (void)database.execute("ROLLBACK");
            return failure(std::move(created).error().withContext(path.string() + ": cannot create the index"));
        }
    }
    if (!database.execute("COMMIT"))
        return failure(database, path.string());
    return {};
}

// Brings an index of an earlier version up to this one; another process may be doing the
// same, so the version is read again inside the write transaction.
Expected<void> upgradeSchema(SqliteDatabase& database, const std::filesystem::path& path) {
    const std::string context = path.string() + ": cannot upgrade the index";
    if (!database.execute("BEGIN IMMEDIATE"))
        return failure(database, context);
    const auto version = pragmaValue(database, "user_version");
    Expected<void> upgraded = version ? Expected<void>() : version.error();
    if (upgraded && *version == 1)
        upgraded = database.execute(kUpgradeFrom1);
    if (upgraded && *version <= 2)
        upgraded = database.execute(kAnalysisTable);
    if (upgraded && *version < LibraryIndex::kSchemaVersion)
        upgraded = database.execute("PRAGMA user_version = " + std::to_string(LibraryIndex::kSchemaVersion));
    if (!upgraded) {
        (void)database.execute("ROLLBACK");
        return failure(std::move(upgraded).error().withContext(context));
    }
    if (!database.execute("COMMIT"))
        return failure(database, context);
    if (*version == 1)
        log::info(kLogComponent, path.string() + ": index upgraded to version " +
                                     std::to_string(LibraryIndex::kSchemaVersion) +
                                     "; the next scan reads every file again");
    else if (*version < LibraryIndex::kSchemaVersion)
        log::info(kLogComponent, path.string() + ": index upgraded to version " +
                                     std::to_string(LibraryIndex::kSchemaVersion) +
                                     "; songs are analysed on the next scan");
    return {};
}

Error notAnIndex(const std::filesystem::path& path) {
    return failure(
        Error(ErrorKind::InvalidData, path.string() + " is an SQLite database but not a media library index"));
}

} // namespace

Expected<std::unique_ptr<SqliteDatabase>> LibraryIndex::open(const std::filesystem::path& path) {
    if (path.empty())
        return failure(Error(ErrorKind::NotFound, "no path given for the media library index"));
    std::error_code code;
    if (path.has_parent_path() && !std::filesystem::is_directory(path.parent_path(), code)) {
        std::filesystem::create_directories(path.parent_path(), code);
        if (code)
            return failure(systemError(code, "cannot make the folder " + path.parent_path().string()));
    }
    if (std::filesystem::is_directory(path, code))
        return failure(Error(ErrorKind::InvalidData, path.string() + " is a folder, not a media library index"));

    auto opened = SqliteDatabase::open(path);
    if (!opened)
        return failure(std::move(opened).error().withContext("cannot open " + path.string()));
    auto database = std::move(opened).value();
    // The first read of the header tells an SQLite file from any other.
    const auto applicationID = pragmaValue(*database, "application_id");
    const auto version = applicationID ? pragmaValue(*database, "user_version") : applicationID;
    if (!version) {
        const Error& why = version.error();
        if (why.kind() == ErrorKind::Busy)
            return failure(why.withContext("cannot open " + path.string()));
        return failure(Error(why.kind(), path.string() + " is not a media library index (" + why.message() + ")"));
    }
    if (*applicationID == 0 && *version == 0) {
        // A new file, or an SQLite database of someone else's; createSchema tells them apart.
        if (auto created = createSchema(*database, path); !created)
            return std::move(created).error();
    } else if (*applicationID != kApplicationID) {
        return notAnIndex(path);
    }
    const auto created = pragmaValue(*database, "user_version");
    if (!created || *created == 0)
        return notAnIndex(path);
    if (*created > kSchemaVersion)
        return failure(Error(ErrorKind::Unsupported,
                             path.string() + " was made by a newer version of this program (index version " +
                                 std::to_string(*created) + ")"));
    if (*created < kSchemaVersion)
        if (auto upgraded = upgradeSchema(*database, path); !upgraded)
            return std::move(upgraded).error();
    // Readers never wait for the scanner in WAL mode; NORMAL keeps the index intact on a crash
    // and may only lose the last batch of a scan on power loss. Either may be refused (a
    // read-only file); the index works without them.
    (void)database->execute("PRAGMA journal_mode = WAL");
    (void)database->execute("PRAGMA synchronous = NORMAL");
    // A playlist query visits every item's page; with SQLite's default 2 MB cache a library of
    // tens of thousands of items is read from the file again on each query. The cache grows
    // only as pages are used, and mapped reads skip a copy per page.
    (void)database->execute("PRAGMA cache_size = -32768");
    (void)database->execute("PRAGMA mmap_size = 268435456");
    return database;
}

} // namespace vexo::media
