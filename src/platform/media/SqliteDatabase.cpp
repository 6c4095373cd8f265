#include "platform/media/SqliteDatabase.h"

#include <sqlite3.h>

namespace vexo::media {
namespace {

// Long enough for another process's scan batch to commit; a scan commits in small batches.
constexpr int kBusyTimeoutMilliseconds = 10000;

ErrorKind errorKindOf(int resultCode) {
    switch (resultCode & 0xff) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return ErrorKind::Busy;
    case SQLITE_NOTADB:
    case SQLITE_CORRUPT:
    case SQLITE_FORMAT:
    case SQLITE_MISMATCH:
    case SQLITE_CONSTRAINT:
        return ErrorKind::InvalidData;
    case SQLITE_TOOBIG:
        return ErrorKind::TooLarge;
    default:
        return ErrorKind::SystemFailure;
    }
}

} // namespace

Expected<std::unique_ptr<SqliteDatabase>> SqliteDatabase::open(const std::filesystem::path& path) {
    sqlite3* handle = nullptr;
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
    const int result = sqlite3_open_v2(path.c_str(), &handle, flags, nullptr);
    if (result != SQLITE_OK) {
        Error error(errorKindOf(result), handle != nullptr ? sqlite3_errmsg(handle) : sqlite3_errstr(result));
        sqlite3_close(handle);
        return error;
    }
    sqlite3_busy_timeout(handle, kBusyTimeoutMilliseconds);
    sqlite3_extended_result_codes(handle, 1);
    return std::unique_ptr<SqliteDatabase>(new SqliteDatabase(handle));
}

SqliteDatabase::~SqliteDatabase() {
    sqlite3_close(m_handle);
}

Expected<void> SqliteDatabase::execute(std::string_view sql) {
    const std::string text(sql);
    if (sqlite3_exec(m_handle, text.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
        return lastError();
    return {};
}

SqliteStatement SqliteDatabase::prepare(std::string_view sql) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(m_handle, sql.data(), static_cast<int>(sql.size()), &statement, nullptr) != SQLITE_OK)
        return {};
    return SqliteStatement(statement);
}

std::string SqliteDatabase::errorMessage() const {
    return sqlite3_errmsg(m_handle);
}

Error SqliteDatabase::lastError() const {
    return Error(errorKindOf(sqlite3_extended_errcode(m_handle)), sqlite3_errmsg(m_handle));
}

std::int64_t SqliteDatabase::lastInsertRowId() const {
    return sqlite3_last_insert_rowid(m_handle);
}

} // namespace vexo::media
