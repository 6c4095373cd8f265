#include "platform/text/Localization.h"

#include <mutex>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/install/InstalledData.h"
#include "platform/log/Log.h"
#include "platform/text/LocaleSettings.h"

#ifndef VEXO_RESOURCE_DIR
#error "VEXO_RESOURCE_DIR must name the source tree's resources directory"
#endif

namespace vexo::text {

namespace {

constexpr std::string_view kComponent = "text";

bool hasFolder(const std::filesystem::path& directory, std::string_view language) {
    std::error_code error;
    return std::filesystem::is_directory(directory / (std::string(language) + ".lproj"), error);
}

// A table or language name that stays inside its folder.
bool isPlainName(std::string_view name) {
    return !name.empty() && name.front() != '.' &&
           name.find_first_of(std::string_view("/\\\0", 3)) == std::string_view::npos;
}

std::mutex g_configuredMutex;
std::optional<std::filesystem::path> g_configured;

} // namespace

Localization::Localization(std::filesystem::path resourceDirectory, std::string_view language)
    : m_directory(std::move(resourceDirectory)),
      m_language(kDevelopmentLanguage) {
    std::vector<std::string> candidates;
    if (isPlainName(language)) {
        candidates.emplace_back(language);
        candidates.emplace_back(language.substr(0, language.find_first_of("_-")));
    }
    for (const std::string& candidate : candidates) {
        if (hasFolder(m_directory, candidate)) {
            m_language = candidate;
            return;
        }
    }
    log::debug(kComponent, "no texts for language '" + std::string(language) + "', using English");
}

void Localization::setConfiguredResourceDirectory(std::optional<std::filesystem::path> directory) {
    std::lock_guard lock(g_configuredMutex);
    g_configured = directory && !directory->empty() ? std::move(directory) : std::nullopt;
}

std::filesystem::path Localization::defaultResourceDirectory() {
    {
        std::lock_guard lock(g_configuredMutex);
        if (g_configured)
            return *g_configured;
    }
    if (std::optional<std::filesystem::path> installed = install::InstalledData::directory("resources"))
        return *installed;
    return VEXO_RESOURCE_DIR;
}

Localization& Localization::main() {
    static Localization localization(defaultResourceDirectory(), LocaleSettings::preferredLanguage());
    return localization;
}

const StringTable& Localization::tableNamed(std::string_view name) const {
    if (auto found = m_tables.find(name); found != m_tables.end())
        return found->second;
    StringTable table;
    if (isPlainName(name)) {
        std::filesystem::path path = m_directory / (m_language + ".lproj") / (std::string(name) + ".strings");
        if (Expected<StringTable> loaded = StringTable::load(path))
            table = std::move(loaded).value();
        else
            log::debug(kComponent, "string table " + path.string() + " not used: " + loaded.error().message());
    }
    return m_tables.emplace(std::string(name), std::move(table)).first->second;
}

std::string Localization::localizedString(std::string_view key, std::string_view value, std::string_view table) const {
    std::lock_guard lock(m_mutex);
    if (const std::string* found = tableNamed(table.empty() ? kDefaultTable : table).find(key))
        return *found;
    return std::string(value.empty() ? key : value);
}

} // namespace vexo::text
