#include "platform/text/Localization.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/text/LocaleSettings.h"

namespace vexo::text {
namespace {

const std::filesystem::path kResources = std::filesystem::path(VEXO_SOURCE_DIR) / "resources";

TEST(LocalizationTest, LooksUpLikeTheHostPlatform) {
    Localization english(kResources, "en_US");
    Localization german(kResources, "de_DE");
    EXPECT_EQ(english.language(), "en");
    EXPECT_EQ(german.language(), "de");

    struct Case {
        const Localization& texts;
        std::string key;
        std::string value;
        std::string expected;
    };
    std::vector<Case> cases = {
        {english, "Manual", "", "Manual"},
        {german, "Manual", "", "Manuell"},
        {english, "Automix On", "", "Automix On"},
        {german, "Automix Off", "", "Automix aus"},
        {german, "Fade", "",
         "\xC3\x9C"
         "berblenden"},
        {english, "--", "", "--"},
        {english, "Wobble", "", "Wobble"},          // missing: the key
        {german, "Wobble", "Fallback", "Fallback"}, // missing with a value: the value
        {german, "Echo", "Fallback", "Echo"},       // present: the table wins
        {english, "", "", ""},
    };
    for (const Case& c : cases)
        EXPECT_EQ(c.texts.localizedString(c.key, c.value), c.expected) << c.key;

    // A table that does not exist, or whose name leaves the folder, is empty.
    EXPECT_EQ(german.localizedString("Manual", "", "Missing"), "Manual");
    EXPECT_EQ(german.localizedString("Manual", "", "../en.lproj/Localizable"), "Manual");
}

TEST(LocalizationTest, EveryEnglishTextIsTranslated) {
    auto english = StringTable::load(kResources / "en.lproj" / "Localizable.strings");
    auto german = StringTable::load(kResources / "de.lproj" / "Localizable.strings");
    ASSERT_TRUE(english);
    ASSERT_TRUE(german);
    EXPECT_EQ(english->size(), german->size());
    for (const char* key : {"Manual", "Automix On", "Automix Off", "--", "Fade", "Cut", "Echo"}) {
        EXPECT_NE(english->find(key), nullptr) << key;
        EXPECT_NE(german->find(key), nullptr) << key;
    }
}

TEST(LocalizationTest, ChoosesTheClosestLanguageThatExists) {
    struct Case {
        std::string requested;
        std::string used;
    };
    std::vector<Case> cases = {{"de", "de"},    {"de_AT", "de"}, {"de-CH", "de"}, {"en_GB", "en"},
                               {"fr_FR", "en"}, {"", "en"},      {"../de", "en"}, {"de/..", "en"}};
    for (const Case& c : cases)
        EXPECT_EQ(Localization(kResources, c.requested).language(), c.used) << c.requested;

    // A malformed table counts as empty rather than half read.
    std::filesystem::path directory =
        std::filesystem::temp_directory_path() / ("vexo-strings-" + std::to_string(::getpid()));
    std::filesystem::create_directories(directory / "en.lproj");
    std::ofstream(directory / "en.lproj" / "Localizable.strings") << "\"Manual\" = \"Hand\";\n\"broken\" = ";
    EXPECT_EQ(Localization(directory, "en").localizedString("Manual"), "Manual");
    std::filesystem::remove_all(directory);
}

TEST(LocaleSettingsTest, ReadsPosixLocaleValues) {
    struct Case {
        std::string value;
        std::optional<std::string> locale;
    };
    std::vector<Case> cases = {
        {"de_DE.UTF-8", "de_DE"},
        {"en_US.UTF-8@euro", "en_US"},
        {"fr", "fr"},
        {"de-AT", "de_AT"},
        {"EN_us", "en_us"},
        {"sr_Latn_RS", "sr_Latn_RS"},
        {"C", std::nullopt},
        {"POSIX", std::nullopt},
        {"C.UTF-8", std::nullopt},
        {"", std::nullopt},
        {"x", std::nullopt},
        {"de__DE", std::nullopt},
        {"de_", std::nullopt},
        {"../de", std::nullopt},
        {"de/x", std::nullopt},
    };
    for (const Case& c : cases)
        EXPECT_EQ(LocaleSettings::fromPosix(c.value), c.locale) << c.value;
}

TEST(LocaleSettingsTest, LanguageSettingComesBeforeLang) {
    using Variables = LocaleSettings::Variables;
    const struct {
        Variables variables;
        std::string language;
        std::string locale;
    } rows[] = {
        {{}, "en", "en_US"},
        {{.lang = "de_DE.UTF-8"}, "de_DE", "de_DE"},
        {{.vexoLanguage = "en_GB", .lang = "de_DE.UTF-8"}, "en_GB", "en_GB"},
        {{.vexoLanguage = "en_GB", .vexoLocale = "de_CH", .lang = "de_DE"}, "en_GB", "de_CH"},
        {{.vexoLanguage = "C", .lang = "de_DE.UTF-8"}, "de_DE", "de_DE"},
        {{.lcAll = "fr_FR", .lcNumeric = "it_IT", .lang = "de_DE"}, "de_DE", "fr_FR"},
        {{.lcNumeric = "it_IT", .lang = "de_DE"}, "de_DE", "it_IT"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(LocaleSettings::preferredLanguage(row.variables), row.language) << row.language;
        EXPECT_EQ(LocaleSettings::formattingLocale(row.variables), row.locale) << row.locale;
    }
    LocaleSettings::setVariables({.vexoLocale = "de_AT"});
    EXPECT_EQ(LocaleSettings::formattingLocale(), "de_AT");
    LocaleSettings::setVariables({});
    EXPECT_EQ(LocaleSettings::formattingLocale(), "en_US");
}

} // namespace
} // namespace vexo::text
