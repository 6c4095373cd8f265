#include "platform/media/SqliteDatabase.h"

#include <sqlite3.h>

namespace vexo::media {
namespace {

// Long enough for another process's scan batch to commit; a scan commits in small batches.
constexpr int kBusyTimeoutMilliseconds = 10000;

} // namespace

std::unique_ptr<SqliteDatabase> SqliteDatabase::open(const std::filesystem::path& path, std::string* error) {
    sqlite3* handle = nullptr;
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
    const int result = sqlite3_open_v2(path.c_str(), &handle, flags, nullptr);
    if (result != SQLITE_OK) {
        if (error != nullptr)
            *error = handle != nullptr ? sqlite3_errmsg(handle) : sqlite3_errstr(result);
        sqlite3_close(handle);
        return nullptr;
    }
    sqlite3_busy_timeout(handle, kBusyTimeoutMilliseconds);
    sqlite3_extended_result_codes(handle, 1);
    return std::unique_ptr<SqliteDatabase>(new SqliteDatabase(handle));
}

SqliteDatabase::~SqliteDatabase() {
    sqlite3_close(m_handle);
}

bool SqliteDatabase::execute(std::string_view sql) {
    const std::string text(sql);
    return sqlite3_exec(m_handle, text.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
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

std::int64_t SqliteDatabase::lastInsertRowId() const {
    return sqlite3_last_insert_rowid(m_handle);
}

} // namespace vexo::media
