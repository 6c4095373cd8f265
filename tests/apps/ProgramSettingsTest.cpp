#include "common/ProgramSettings.h"

#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "support/ScopedEnvironment.h"

using vexo::apps::ProgramSettings;
using vexo::log::Level;

namespace {

// Every variable lands in its own field; an empty one counts as unset, except where the
// locale rules read it themselves.
TEST(ProgramSettingsTest, EachVariableLandsInItsField) {
    vexo::testing::ScopedEnvironment environment;
    const struct {
        const char* name;
        std::optional<std::string> value;
    } variables[] = {
        {"VEXO_LOG", "debug"},      {"VEXO_CONTAINER_ROOT", "/containers"},
        {"XDG_RUNTIME_DIR", ""},    {"HOME", "/home/u"},
        {"XDG_DATA_HOME", "/data"}, {"XDG_CONFIG_HOME", std::nullopt},
        {"VEXO_LANGUAGE", "de"},    {"VEXO_LOCALE", ""},
        {"LC_ALL", std::nullopt},   {"LC_NUMERIC", "fr_FR"},
        {"LANG", "C.UTF-8"},        {"VEXO_RESOURCE_DIR", "/resources"},
        {"VEXO_ASSET_DIR", ""},     {"VEXO_MEDIA_LIBRARY", "/library.sqlite"},
        {"VEXO_WEB_DIR", "/web"},   {"VEXO_PHONE_LAUNCH_COMMAND", " "},
    };
    for (const auto& variable : variables)
        environment.set(variable.name, variable.value);

    const ProgramSettings settings = ProgramSettings::fromEnvironment();
    EXPECT_EQ(settings.logLevel, Level::Debug);
    EXPECT_EQ(settings.container.root, "/containers");
    EXPECT_EQ(settings.container.runtimeDirectory, std::nullopt);
    EXPECT_EQ(settings.userDirectories.home, "/home/u");
    EXPECT_EQ(settings.userDirectories.dataHome, "/data");
    EXPECT_EQ(settings.userDirectories.configHome, std::nullopt);
    EXPECT_EQ(settings.locale.vexoLanguage, "de");
    EXPECT_EQ(settings.locale.vexoLocale, "");
    EXPECT_EQ(settings.locale.lcAll, std::nullopt);
    EXPECT_EQ(settings.locale.lcNumeric, "fr_FR");
    EXPECT_EQ(settings.locale.lang, "C.UTF-8");
    EXPECT_EQ(settings.resourceDirectory, std::filesystem::path("/resources"));
    EXPECT_EQ(settings.assetDirectory, std::nullopt);
    EXPECT_EQ(settings.mediaLibrary, "/library.sqlite");
    EXPECT_EQ(settings.webDirectory, std::filesystem::path("/web"));
    EXPECT_EQ(settings.phoneLaunchCommand, " ") << "a blank command is the link's to refuse";

    environment.set("VEXO_LOG", std::nullopt);
    EXPECT_EQ(ProgramSettings::fromEnvironment().logLevel, std::nullopt);
    environment.set("VEXO_LOG", "loud");
    EXPECT_EQ(ProgramSettings::fromEnvironment().logLevel, Level::Warning);
}

} // namespace
