#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "platform/base/UserDirectories.h"
#include "platform/ipc/Container.h"
#include "platform/log/Log.h"
#include "platform/text/LocaleSettings.h"

// What the four programs take from their environment, read in one place. Each program's
// `main` makes one ProgramSettings from the environment, lets its options override what
// they name, applies the process-wide part once with install(), and hands the rest to the
// parts that need it.
namespace vexo::apps {

struct ProgramSettings {
    // VEXO_LOG; nothing leaves the log level at "warning".
    std::optional<log::Level> logLevel;
    // VEXO_CONTAINER_ROOT and XDG_RUNTIME_DIR.
    ipc::Container::Location container;
    // HOME, XDG_DATA_HOME and XDG_CONFIG_HOME.
    UserDirectories userDirectories;
    // VEXO_LANGUAGE, VEXO_LOCALE, LC_ALL, LC_NUMERIC and LANG.
    text::LocaleSettings::Variables locale;
    // VEXO_RESOURCE_DIR and VEXO_ASSET_DIR.
    std::optional<std::filesystem::path> resourceDirectory;
    std::optional<std::filesystem::path> assetDirectory;
    // VEXO_MEDIA_LIBRARY.
    std::optional<std::string> mediaLibrary;
    // VEXO_WEB_DIR.
    std::optional<std::filesystem::path> webDirectory;
    // VEXO_PHONE_LAUNCH_COMMAND, as given (see SocketParentApplication::launchCommandFrom).
    std::optional<std::string> phoneLaunchCommand;

    // The settings of this process's environment. A variable set to the empty string counts
    // as unset, except the locale variables, which are taken as they are.
    [[nodiscard]] static ProgramSettings fromEnvironment();

    // Applies the process-wide settings: the log level, the container location, the locale
    // variables and the resource and asset directories. Main thread, at start-up, before
    // another thread runs and before anything is logged, localised or stored.
    void install() const;
};

} // namespace vexo::apps
