#pragma once

#include <optional>
#include <string>
#include <string_view>

// Which language and locale the user asked for, read from the environment. Locale names
// are ICU/POSIX style without encoding or modifier: "de_DE", "en", "pt_BR".
namespace vexo::text {

class LocaleSettings {
public:
    // The locale part of a POSIX locale value: "de_DE.UTF-8@euro" -> "de_DE", "fr" -> "fr",
    // "de-AT" -> "de_AT". Nothing for "", "C", "POSIX" and malformed values.
    [[nodiscard]] static std::optional<std::string> fromPosix(std::string_view value);

    // The language of the user's texts: VEXO_LANGUAGE, else LANG; "en" when neither names one.
    [[nodiscard]] static std::string preferredLanguage();

    // The locale that numbers are formatted in: VEXO_LOCALE, else VEXO_LANGUAGE, else
    // LC_ALL, LC_NUMERIC, LANG; "en_US" when none names one. So choosing the watch's
    // language also chooses its decimal mark, unless a locale is set on its own.
    [[nodiscard]] static std::string formattingLocale();
};

} // namespace vexo::text
