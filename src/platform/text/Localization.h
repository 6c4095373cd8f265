#pragma once

#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "platform/text/StringTable.h"

// The localised texts of one language, as the host platform's bundle serves them: tables
// in "<resources>/<language>.lproj/<table>.strings", read on first use and kept.
// Thread-safe.
namespace vexo::text {

class Localization {
public:
    static constexpr std::string_view kDefaultTable = "Localizable";
    static constexpr std::string_view kDevelopmentLanguage = "en";

    // Texts for `language` ("de_DE", "de" or "en") from `resourceDirectory`. The language
    // used is the first of: the exact name, its language code, English, that has a folder.
    Localization(std::filesystem::path resourceDirectory, std::string_view language);
    Localization(const Localization&) = delete;
    Localization& operator=(const Localization&) = delete;

    // The resource directory the program was told to use (VEXO_RESOURCE_DIR); nothing or an
    // empty path means none. Call at start-up, before main() is first used. Thread-safe.
    static void setConfiguredResourceDirectory(std::optional<std::filesystem::path> directory);

    // The configured resource directory when there is one, else the installed
    // `share/vexo/resources` beside the program, else the source tree's resources.
    [[nodiscard]] static std::filesystem::path defaultResourceDirectory();

    // The process-wide texts in LocaleSettings::preferredLanguage(), made on first use.
    static Localization& main();

    // The language whose folder is used, e.g. "de".
    [[nodiscard]] const std::string& language() const { return m_language; }

    // The host platform's lookup: the table's value for `key`; when there is none, `value`,
    // or `key` itself when `value` is empty. `table` empty means kDefaultTable. A table
    // that is missing or malformed counts as empty (and is logged once at debug level).
    [[nodiscard]] std::string localizedString(std::string_view key, std::string_view value = {},
                                              std::string_view table = {}) const;

private:
    const StringTable& tableNamed(std::string_view name) const;

    std::filesystem::path m_directory;
    std::string m_language;
    mutable std::mutex m_mutex;
    mutable std::map<std::string, StringTable, std::less<>> m_tables;
};

} // namespace vexo::text
