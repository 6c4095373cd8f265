#include "platform/media/LibraryIndex.h"

#include <system_error>

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

bool fail(std::string* error, std::string message) {
    log::debug(kLogComponent, message);
    if (error != nullptr)
        *error = std::move(message);
    return false;
}

std::optional<std::int64_t> pragmaValue(SqliteDatabase& database, std::string_view pragma) {
    auto statement = database.prepare("PRAGMA " + std::string(pragma));
    if (statement.step() != SqliteStatement::Step::Row)
        return std::nullopt;
    return statement.integer(0);
}

// Makes the tables unless another process did meanwhile; the immediate transaction makes
// two first openings take turns.
bool createSchema(SqliteDatabase& database, const std::filesystem::path& path, std::string* error) {
    if (!database.execute("BEGIN IMMEDIATE"))
        return fail(error, path.string() + ": " + database.errorMessage());
    const auto version = pragmaValue(database, "user_version");
    const auto tables = [&]() -> std::optional<std::int64_t> {
        auto statement = database.prepare("SELECT count(*) FROM sqlite_master");
        if (statement.step() != SqliteStatement::Step::Row)
            return std::nullopt;
        return statement.integer(0);
    }();
    bool ok = true;
    if (version == 0 && tables == 0) {
        ok = database.execute(kSchema) && database.execute(kAnalysisTable) &&
             database.execute("PRAGMA application_id = " + std::to_string(LibraryIndex::kApplicationID)) &&
             database.execute("PRAGMA user_version = " + std::to_string(LibraryIndex::kSchemaVersion));
    }
    if (!ok) {
        const std::string message = database.errorMessage();
        database.execute("ROLLBACK");
        return fail(error, path.string() + ": cannot create the index: " + message);
    }
    if (!database.execute("COMMIT"))
        return fail(error, path.string() + ": " + database.errorMessage());
    return true;
}

// Brings an index of an earlier version up to this one; another process may be doing the
// same, so the version is read again inside the write transaction.
bool upgradeSchema(SqliteDatabase& database, const std::filesystem::path& path, std::string* error) {
    if (!database.execute("BEGIN IMMEDIATE"))
        return fail(error, path.string() + ": cannot upgrade the index: " + database.errorMessage());
    const auto version = pragmaValue(database, "user_version");
    bool ok = version.has_value();
    if (ok && *version == 1)
        ok = database.execute(kUpgradeFrom1);
    if (ok && *version <= 2)
        ok = database.execute(kAnalysisTable);
    if (ok && *version < LibraryIndex::kSchemaVersion)
        ok = database.execute("PRAGMA user_version = " + std::to_string(LibraryIndex::kSchemaVersion));
    if (!ok) {
        const std::string message = database.errorMessage();
        database.execute("ROLLBACK");
        return fail(error, path.string() + ": cannot upgrade the index: " + message);
    }
    if (!database.execute("COMMIT"))
        return fail(error, path.string() + ": cannot upgrade the index: " + database.errorMessage());
    if (version == 1)
        log::info(kLogComponent, path.string() + ": index upgraded to version " +
                                     std::to_string(LibraryIndex::kSchemaVersion) +
                                     "; the next scan reads every file again");
    else if (version < LibraryIndex::kSchemaVersion)
        log::info(kLogComponent, path.string() + ": index upgraded to version " +
                                     std::to_string(LibraryIndex::kSchemaVersion) +
                                     "; songs are analysed on the next scan");
    return true;
}

} // namespace

std::unique_ptr<SqliteDatabase> LibraryIndex::open(const std::filesystem::path& path, std::string* error) {
    if (path.empty()) {
        fail(error, "no path given for the media library index");
        return nullptr;
    }
    std::error_code code;
    if (path.has_parent_path() && !std::filesystem::is_directory(path.parent_path(), code)) {
        std::filesystem::create_directories(path.parent_path(), code);
        if (code) {
            fail(error, "cannot make the folder " + path.parent_path().string() + ": " + code.message());
            return nullptr;
        }
    }
    if (std::filesystem::is_directory(path, code)) {
        fail(error, path.string() + " is a folder, not a media library index");
        return nullptr;
    }

    std::string openError;
    auto database = SqliteDatabase::open(path, &openError);
    if (!database) {
        fail(error, "cannot open " + path.string() + ": " + openError);
        return nullptr;
    }
    // The first read of the header tells an SQLite file from any other.
    const auto applicationID = pragmaValue(*database, "application_id");
    const auto version = pragmaValue(*database, "user_version");
    if (!applicationID || !version) {
        fail(error, path.string() + " is not a media library index (" + database->errorMessage() + ")");
        return nullptr;
    }
    if (*applicationID == 0 && *version == 0) {
        // A new file, or an SQLite database of someone else's; createSchema tells them apart.
        if (!createSchema(*database, path, error))
            return nullptr;
    } else if (*applicationID != kApplicationID) {
        fail(error, path.string() + " is an SQLite database but not a media library index");
        return nullptr;
    }
    const auto created = pragmaValue(*database, "user_version");
    if (!created || *created == 0) {
        fail(error, path.string() + " is an SQLite database but not a media library index");
        return nullptr;
    }
    if (*created > kSchemaVersion) {
        fail(error, path.string() + " was made by a newer version of this program (index version " +
                        std::to_string(*created) + ")");
        return nullptr;
    }
    if (*created < kSchemaVersion && !upgradeSchema(*database, path, error))
        return nullptr;
    // Readers never wait for the scanner in WAL mode; NORMAL keeps the index intact on a crash
    // and may only lose the last batch of a scan on power loss. Either may be refused (a
    // read-only file); the index works without them.
    database->execute("PRAGMA journal_mode = WAL");
    database->execute("PRAGMA synchronous = NORMAL");
    // A playlist query visits every item's page; with SQLite's default 2 MB cache a library of
    // tens of thousands of items is read from the file again on each query. The cache grows
    // only as pages are used, and mapped reads skip a copy per page.
    database->execute("PRAGMA cache_size = -32768");
    database->execute("PRAGMA mmap_size = 268435456");
    return database;
}

} // namespace vexo::media
