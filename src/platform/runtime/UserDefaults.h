#pragma once

#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "platform/base/UserDirectories.h"
#include "platform/plist/Value.h"

// The extension's user defaults: a small persistent key-value store of property-list values,
// with defaults registered in memory beneath it (the host platform's standard user defaults).
//
// The persisted values live in one file, a keyed archive of a dictionary, which is read once
// at construction and rewritten whole, atomically (temporary file beside it, then rename),
// on every change. Changes that another process (or another instance on the same file) makes
// later are not seen; the last writer's whole dictionary wins. A missing, unreadable or
// corrupt file reads as empty and is replaced on the next change.
//
// Every member is thread-safe.
namespace vexo::runtime {

class UserDefaults {
public:
    // A store persisted in `file`; its directory is created (mode 0700) on the first write.
    // An empty path keeps the values in memory only.
    explicit UserDefaults(std::filesystem::path file);

    UserDefaults(const UserDefaults&) = delete;
    UserDefaults& operator=(const UserDefaults&) = delete;
    UserDefaults(UserDefaults&&) = delete;
    UserDefaults& operator=(UserDefaults&&) = delete;
    ~UserDefaults() = default;

    // The file of `domain`: `<configuration home>/vexo/<domain>.plist`, where a configuration
    // home (`directories.configHome`) that is missing or relative means `<home>/.config`, the
    // home being `directories.home` when absolute, else the password database's. "/" and NUL
    // in `domain` are escaped as %XX (and so is "%"), so the file is always directly inside
    // that directory. Empty when no home directory is known.
    [[nodiscard]] static std::filesystem::path standardPath(std::string_view domain,
                                                            const UserDirectories& directories);

    // Adds `defaults` to the registered values, in memory only; a key registered again takes
    // the later value. Registered values are read where no value is persisted.
    void registerDefaults(const plist::Dictionary& defaults);

    // The persisted value of `key`, else its registered value, else nothing.
    [[nodiscard]] plist::Value objectForKey(std::string_view key) const;

    // objectForKey() through plist::Value's conversions: a missing key reads as 0, false or
    // nothing, a string "12" as the integer 12, the number 12 as the string "12".
    [[nodiscard]] std::int64_t integerForKey(std::string_view key) const;
    [[nodiscard]] bool boolForKey(std::string_view key) const;
    [[nodiscard]] double doubleForKey(std::string_view key) const;
    [[nodiscard]] std::optional<std::string> stringForKey(std::string_view key) const;

    // Persists `value` under `key` before returning; nothing removes the key. A value that
    // cannot be archived (nesting too deep) changes nothing, with a log line. When the file
    // cannot be written the value is kept in memory for this instance, with a debug log line.
    void setObject(const plist::Value& value, std::string_view key);
    void setInteger(std::int64_t value, std::string_view key);
    void setBool(bool value, std::string_view key);
    void setDouble(double value, std::string_view key);

    // Removes the persisted value of `key`, so that its registered value shows again.
    void removeObjectForKey(std::string_view key);

    // The file this store is persisted in; empty for a store in memory only.
    [[nodiscard]] const std::filesystem::path& file() const { return m_file; }

private:
    // Reads the persisted dictionary; empty, with a debug log line, when there is none.
    [[nodiscard]] plist::Dictionary load() const;
    // Archives `values` and writes them to the file. False (logged) when they cannot be
    // archived; a failed write is logged and still counts as done.
    [[nodiscard]] bool persist(const plist::Dictionary& values) const;

    const std::filesystem::path m_file;
    mutable std::mutex m_mutex;
    plist::Dictionary m_values;
    plist::Dictionary m_registered;
};

} // namespace vexo::runtime
