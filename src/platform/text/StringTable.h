#pragma once

#include <cstddef>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>

#include "platform/base/Expected.h"

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

    // Parses `text`; an InvalidData error ("line N: why") when it is not well formed. A
    // leading byte-order mark is skipped.
    static Expected<StringTable> parse(std::string_view text);

    // Reads and parses the file at `path`. NotFound when there is no such file, TooLarge
    // above a megabyte, SystemFailure when it cannot be read, InvalidData when it does not
    // parse.
    static Expected<StringTable> load(const std::filesystem::path& path);

    // The value for `key`, or nullptr. The pointer lives as long as the table.
    [[nodiscard]] const std::string* find(std::string_view key) const;

    [[nodiscard]] std::size_t size() const { return m_entries.size(); }

    // Adds or replaces one entry.
    void set(std::string key, std::string value);

private:
    std::map<std::string, std::string, std::less<>> m_entries;
};

} // namespace vexo::text
