#pragma once

#include <cstddef>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>

// One localised string table: the host platform's ".strings" text format, read as UTF-8.
//
//   /* A comment for translators. */
//   "Automix On" = "Automix an";
//   // Line comments too.
//   "Echo";                         (shorthand: the value is the key)
//
// Keys and values are quoted strings (or bare words of letters, digits and _$+/:.-) with
// the escapes \" \\ \n \t \r \' \a \b \f \v, octal \ooo and \Uxxxx (UTF-16 units, pairs
// joined). A key given twice keeps its last value.
namespace vexo::text {

class StringTable {
public:
    StringTable() = default;

    // Parses `text`; nothing when it is not well formed, with "line N: why" in `error`
    // when given. A leading byte-order mark is skipped.
    [[nodiscard]] static std::optional<StringTable> parse(std::string_view text, std::string* error = nullptr);

    // Reads and parses the file at `path`; nothing (and a reason in `error`) when it cannot
    // be read, is larger than a megabyte, or does not parse.
    [[nodiscard]] static std::optional<StringTable> load(const std::filesystem::path& path,
                                                         std::string* error = nullptr);

    // The value for `key`, or nullptr. The pointer lives as long as the table.
    [[nodiscard]] const std::string* find(std::string_view key) const;

    [[nodiscard]] std::size_t size() const { return m_entries.size(); }

    // Adds or replaces one entry.
    void set(std::string key, std::string value);

private:
    std::map<std::string, std::string, std::less<>> m_entries;
};

} // namespace vexo::text
