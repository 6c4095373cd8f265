#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

struct sqlite3_stmt;

// One prepared SQLite statement: bind, step through the rows, reset, step again. Parameter
// and column indexes start at 1 and 0, as in SQLite itself.
//
// Owned by whoever prepared it; used by one thread at a time, with its database.
namespace vexo::media {

class SqliteStatement {
public:
    enum class Step { Row, Done, Error };

    // An empty statement: step() gives Error. See SqliteDatabase::prepare.
    SqliteStatement() = default;
    explicit SqliteStatement(sqlite3_stmt* statement)
        : m_statement(statement) {}
    ~SqliteStatement();
    SqliteStatement(SqliteStatement&& other) noexcept;
    SqliteStatement& operator=(SqliteStatement&& other) noexcept;
    SqliteStatement(const SqliteStatement&) = delete;
    SqliteStatement& operator=(const SqliteStatement&) = delete;

    [[nodiscard]] bool isValid() const { return m_statement != nullptr; }

    // Binding copies the value (SQLITE_TRANSIENT); the argument need not outlive the call.
    SqliteStatement& bind(int index, std::int64_t value);
    SqliteStatement& bind(int index, double value);
    SqliteStatement& bind(int index, std::string_view text);
    SqliteStatement& bind(int index, std::span<const std::uint8_t> blob);
    SqliteStatement& bindNull(int index);

    // The next row, the end, or an error (see SqliteDatabase::errorMessage).
    [[nodiscard]] Step step();

    // Runs the statement to its end; true unless an error came. For statements without rows.
    bool run();

    // Makes the statement ready to step again; bindings are kept.
    void reset();

    [[nodiscard]] std::int64_t integer(int column) const;
    [[nodiscard]] double real(int column) const;
    [[nodiscard]] std::string text(int column) const { return std::string(textView(column)); }
    // The text of a column; valid until the next step, reset or destruction.
    [[nodiscard]] std::string_view textView(int column) const;
    [[nodiscard]] bool isNull(int column) const;
    // A column that may hold NULL: nothing for NULL, else its value.
    [[nodiscard]] std::optional<double> optionalReal(int column) const {
        return isNull(column) ? std::nullopt : std::optional<double>(real(column));
    }
    [[nodiscard]] std::optional<std::string> optionalText(int column) const {
        return isNull(column) ? std::nullopt : std::optional<std::string>(text(column));
    }
    // The bytes of a blob column; valid until the next step, reset or destruction.
    [[nodiscard]] std::span<const std::uint8_t> blob(int column) const;

private:
    sqlite3_stmt* m_statement = nullptr;
};

} // namespace vexo::media
