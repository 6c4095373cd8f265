#include "platform/text/LocaleSettings.h"

#include <cstdlib>
#include <initializer_list>

namespace vexo::text {

namespace {

bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isAlphanumeric(char c) {
    return isLetter(c) || (c >= '0' && c <= '9');
}

std::optional<std::string> firstSet(std::initializer_list<const char*> variables) {
    for (const char* variable : variables) {
        const char* value = std::getenv(variable);
        if (!value)
            continue;
        if (std::optional<std::string> locale = LocaleSettings::fromPosix(value))
            return locale;
    }
    return std::nullopt;
}

} // namespace

std::optional<std::string> LocaleSettings::fromPosix(std::string_view value) {
    value = value.substr(0, value.find_first_of(".@"));
    if (value.empty() || value == "C" || value == "POSIX")
        return std::nullopt;
    // A language of two or three letters, then optional subtags (script, region).
    std::string locale;
    std::size_t language = 0;
    while (language < value.size() && isLetter(value[language]))
        ++language;
    if (language < 2 || language > 3)
        return std::nullopt;
    for (std::size_t i = 0; i < value.size(); ++i) {
        char c = value[i];
        if (c == '-' || c == '_') {
            if (i + 1 == value.size() || value[i + 1] == '-' || value[i + 1] == '_')
                return std::nullopt;
            locale += '_';
        } else if (isAlphanumeric(c)) {
            locale += i < language ? static_cast<char>(c | 0x20) : c;
        } else {
            return std::nullopt;
        }
    }
    if (locale.size() > 32)
        return std::nullopt;
    return locale;
}

std::string LocaleSettings::preferredLanguage() {
    return firstSet({"VEXO_LANGUAGE", "LANG"}).value_or("en");
}

std::string LocaleSettings::formattingLocale() {
    return firstSet({"VEXO_LOCALE", "VEXO_LANGUAGE", "LC_ALL", "LC_NUMERIC", "LANG"}).value_or("en_US");
}

} // namespace vexo::text
