#include "platform/media/SqliteStatement.h"

#include <utility>

#include <sqlite3.h>

namespace vexo::media {

SqliteStatement::~SqliteStatement() {
    sqlite3_finalize(m_statement);
}

SqliteStatement::SqliteStatement(SqliteStatement&& other) noexcept
    : m_statement(std::exchange(other.m_statement, nullptr)) {}

SqliteStatement& SqliteStatement::operator=(SqliteStatement&& other) noexcept {
    if (this != &other) {
        sqlite3_finalize(m_statement);
        m_statement = std::exchange(other.m_statement, nullptr);
    }
    return *this;
}

SqliteStatement& SqliteStatement::bind(int index, std::int64_t value) {
    sqlite3_bind_int64(m_statement, index, value);
    return *this;
}

SqliteStatement& SqliteStatement::bind(int index, double value) {
    sqlite3_bind_double(m_statement, index, value);
    return *this;
}

SqliteStatement& SqliteStatement::bind(int index, std::string_view text) {
    sqlite3_bind_text64(m_statement, index, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
    return *this;
}

SqliteStatement& SqliteStatement::bind(int index, std::span<const std::uint8_t> blob) {
    // An empty span may have no data pointer, which SQLite would take for NULL.
    static const std::uint8_t kEmpty = 0;
    sqlite3_bind_blob64(m_statement, index, blob.empty() ? &kEmpty : blob.data(), blob.size(), SQLITE_TRANSIENT);
    return *this;
}

SqliteStatement& SqliteStatement::bindNull(int index) {
    sqlite3_bind_null(m_statement, index);
    return *this;
}

SqliteStatement::Step SqliteStatement::step() {
    if (m_statement == nullptr)
        return Step::Error;
    switch (sqlite3_step(m_statement)) {
    case SQLITE_ROW:
        return Step::Row;
    case SQLITE_DONE:
        return Step::Done;
    default:
        return Step::Error;
    }
}

bool SqliteStatement::run() {
    Step result;
    while ((result = step()) == Step::Row) {
    }
    // The connection keeps the error message through the reset.
    reset();
    return result == Step::Done;
}

void SqliteStatement::reset() {
    sqlite3_reset(m_statement);
}

std::int64_t SqliteStatement::integer(int column) const {
    return sqlite3_column_int64(m_statement, column);
}

double SqliteStatement::real(int column) const {
    return sqlite3_column_double(m_statement, column);
}

std::string_view SqliteStatement::textView(int column) const {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(m_statement, column));
    if (text == nullptr)
        return {};
    return {text, static_cast<std::size_t>(sqlite3_column_bytes(m_statement, column))};
}

bool SqliteStatement::isNull(int column) const {
    return sqlite3_column_type(m_statement, column) == SQLITE_NULL;
}

std::span<const std::uint8_t> SqliteStatement::blob(int column) const {
    const auto* data = static_cast<const std::uint8_t*>(sqlite3_column_blob(m_statement, column));
    if (data == nullptr)
        return {};
    return {data, static_cast<std::size_t>(sqlite3_column_bytes(m_statement, column))};
}

} // namespace vexo::media
