#pragma once

#include <optional>
#include <string>
#include <string_view>

// Which language and locale the user asked for. Locale names are ICU/POSIX style without
// encoding or modifier: "de_DE", "en", "pt_BR".
namespace vexo::text {

class LocaleSettings {
public:
    // The variables that choose them, as the program was told them at start-up (its
    // options folded in): each nothing when unset.
    struct Variables {
        std::optional<std::string> vexoLanguage{}; // VEXO_LANGUAGE
        std::optional<std::string> vexoLocale{};   // VEXO_LOCALE
        std::optional<std::string> lcAll{};        // LC_ALL
        std::optional<std::string> lcNumeric{};    // LC_NUMERIC
        std::optional<std::string> lang{};         // LANG
    };

    // The locale part of a POSIX locale value: "de_DE.UTF-8@euro" -> "de_DE", "fr" -> "fr",
    // "de-AT" -> "de_AT". Nothing for "", "C", "POSIX" and malformed values.
    [[nodiscard]] static std::optional<std::string> fromPosix(std::string_view value);

    // The language of the user's texts: VEXO_LANGUAGE, else LANG, the first that names one;
    // "en" when neither does.
    [[nodiscard]] static std::string preferredLanguage(const Variables& variables);

    // The locale that numbers are formatted in: VEXO_LOCALE, else VEXO_LANGUAGE, else
    // LC_ALL, LC_NUMERIC, LANG; "en_US" when none names one. So choosing the watch's
    // language also chooses its decimal mark, unless a locale is set on its own.
    [[nodiscard]] static std::string formattingLocale(const Variables& variables);

    // Sets the process's variables (none until then). Call at start-up, before a text is
    // looked up: Localization::main() keeps the language it was made with. Thread-safe.
    static void setVariables(Variables variables);

    // The two above for the process's variables.
    [[nodiscard]] static std::string preferredLanguage();
    [[nodiscard]] static std::string formattingLocale();
};

} // namespace vexo::text
