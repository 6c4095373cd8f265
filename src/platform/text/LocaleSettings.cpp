#include "platform/text/LocaleSettings.h"

#include <initializer_list>
#include <mutex>
#include <utility>

namespace vexo::text {

namespace {

bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isAlphanumeric(char c) {
    return isLetter(c) || (c >= '0' && c <= '9');
}

std::optional<std::string> firstSet(std::initializer_list<const std::optional<std::string>*> values) {
    for (const std::optional<std::string>* value : values) {
        if (!*value)
            continue;
        if (std::optional<std::string> locale = LocaleSettings::fromPosix(**value))
            return locale;
    }
    return std::nullopt;
}

std::mutex g_mutex;
LocaleSettings::Variables g_variables;

LocaleSettings::Variables processVariables() {
    std::lock_guard lock(g_mutex);
    return g_variables;
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

std::string LocaleSettings::preferredLanguage(const Variables& variables) {
    return firstSet({&variables.vexoLanguage, &variables.lang}).value_or("en");
}

std::string LocaleSettings::formattingLocale(const Variables& variables) {
    return firstSet({&variables.vexoLocale, &variables.vexoLanguage, &variables.lcAll, &variables.lcNumeric,
                     &variables.lang})
        .value_or("en_US");
}

void LocaleSettings::setVariables(Variables variables) {
    std::lock_guard lock(g_mutex);
    g_variables = std::move(variables);
}

std::string LocaleSettings::preferredLanguage() {
    return preferredLanguage(processVariables());
}

std::string LocaleSettings::formattingLocale() {
    return formattingLocale(processVariables());
}

} // namespace vexo::text
