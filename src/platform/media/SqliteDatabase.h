#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "platform/base/Expected.h"
#include "platform/media/SqliteStatement.h"

struct sqlite3;

// One connection to an SQLite database file.
//
// A connection is used by one thread at a time; its owner serialises access. Several
// connections, in this process or others, may use the same file: writers wait for each other
// up to a busy timeout instead of failing at once.
namespace vexo::media {

class SqliteDatabase {
public:
    // Opens (creating if missing) the database at `path`, or says why the file cannot be
    // opened (the kinds as lastError()).
    [[nodiscard]] static Expected<std::unique_ptr<SqliteDatabase>> open(const std::filesystem::path& path);

    ~SqliteDatabase();
    SqliteDatabase(const SqliteDatabase&) = delete;
    SqliteDatabase& operator=(const SqliteDatabase&) = delete;
    SqliteDatabase(SqliteDatabase&&) = delete;
    SqliteDatabase& operator=(SqliteDatabase&&) = delete;

    // Runs one or more statements that return no rows; stops at the first error (lastError()).
    [[nodiscard]] Expected<void> execute(std::string_view sql);

    // A prepared statement; an invalid one (see errorMessage()) when `sql` does not compile.
    // REQUIRES: the statement is destroyed before the database.
    [[nodiscard]] SqliteStatement prepare(std::string_view sql);

    // The message of the last failed call on this connection.
    [[nodiscard]] std::string errorMessage() const;

    // The last failed call on this connection as an Error: Busy when another connection held
    // the database past the busy timeout, InvalidData when the file is not a database or is
    // damaged, TooLarge past SQLite's limits, SystemFailure otherwise (cannot open, I/O,
    // read-only, full).
    [[nodiscard]] Error lastError() const;

    // The rowid given by the last successful INSERT.
    [[nodiscard]] std::int64_t lastInsertRowId() const;

private:
    explicit SqliteDatabase(sqlite3* handle)
        : m_handle(handle) {}

    sqlite3* m_handle;
};

} // namespace vexo::media
