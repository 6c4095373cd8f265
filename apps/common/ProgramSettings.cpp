#include "common/ProgramSettings.h"

#include <cstdlib>

#include "platform/graphics/AssetCatalog.h"
#include "platform/text/Localization.h"

namespace vexo::apps {
namespace {

// The value of `name`; nothing when it is unset.
std::optional<std::string> variable(const char* name) {
    const char* value = std::getenv(name);
    if (value == nullptr)
        return std::nullopt;
    return std::string(value);
}

// The value of `name`; nothing when it is unset or empty.
std::optional<std::string> nonEmptyVariable(const char* name) {
    std::optional<std::string> value = variable(name);
    if (value && value->empty())
        return std::nullopt;
    return value;
}

std::optional<std::filesystem::path> pathVariable(const char* name) {
    if (std::optional<std::string> value = nonEmptyVariable(name))
        return std::filesystem::path(*value);
    return std::nullopt;
}

} // namespace

ProgramSettings ProgramSettings::fromEnvironment() {
    ProgramSettings settings;
    if (const auto level = variable("VEXO_LOG"))
        settings.logLevel = log::levelNamed(*level);
    settings.container = {.root = nonEmptyVariable("VEXO_CONTAINER_ROOT"),
                          .runtimeDirectory = nonEmptyVariable("XDG_RUNTIME_DIR")};
    settings.userDirectories = {.home = nonEmptyVariable("HOME"),
                                .dataHome = nonEmptyVariable("XDG_DATA_HOME"),
                                .configHome = nonEmptyVariable("XDG_CONFIG_HOME")};
    settings.locale = {.vexoLanguage = variable("VEXO_LANGUAGE"),
                       .vexoLocale = variable("VEXO_LOCALE"),
                       .lcAll = variable("LC_ALL"),
                       .lcNumeric = variable("LC_NUMERIC"),
                       .lang = variable("LANG")};
    settings.resourceDirectory = pathVariable("VEXO_RESOURCE_DIR");
    settings.assetDirectory = pathVariable("VEXO_ASSET_DIR");
    settings.mediaLibrary = nonEmptyVariable("VEXO_MEDIA_LIBRARY");
    settings.webDirectory = pathVariable("VEXO_WEB_DIR");
    settings.phoneLaunchCommand = variable("VEXO_PHONE_LAUNCH_COMMAND");
    return settings;
}

void ProgramSettings::install() const {
    if (logLevel)
        log::setLevel(*logLevel);
    ipc::Container::setLocation(container);
    text::LocaleSettings::setVariables(locale);
    text::Localization::setConfiguredResourceDirectory(resourceDirectory);
    graphics::AssetCatalog::setConfiguredDirectory(assetDirectory);
}

} // namespace vexo::apps
