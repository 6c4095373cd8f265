#include <filesystem>
#include <fstream>
#include <regex>
#include <set>

#include "EngineTestFixture.h"
#include "platform/text/StringTable.h"

using namespace vexo;
using namespace vexo::phone;
using namespace vexo::phone::testing;

namespace {

const std::filesystem::path kResources = std::filesystem::path(VEXO_SOURCE_DIR) / "resources";

TEST(NotificationTextsTest, NotificationsSpeakTheLanguageTheyAreGiven) {
    struct Texts {
        std::string loadTitle, loadBody, loadAction, automixTitle, automixBody;
    };
    const Texts english{"Deck 2 has stopped", "Its song has ended and nothing follows. Load another one?",
                        "Load a song", "Song ending", "The song you hear ends soon. Let automix carry on?"};
    const Texts german{"Deck 2 hat angehalten", "Sein Titel ist zu Ende, und nichts folgt. Einen anderen laden?",
                       "Titel laden", "Titel endet", "Der Titel, den du hörst, endet bald. Soll Automix weitermachen?"};
    // French has no texts of its own; Austrian German is German.
    const std::pair<const char*, const Texts*> cases[] = {
        {"en", &english}, {"fr_FR", &english}, {"de_DE", &german}, {"de-AT", &german}};
    for (const auto& [locale, expected] : cases) {
        SCOPED_TRACE(locale);
        const text::Localization texts(kResources, locale);
        const ipc::LocalNotification load = Engine::loadNotification(2, texts);
        EXPECT_EQ(load.alertTitle, expected->loadTitle);
        EXPECT_EQ(load.alertBody, expected->loadBody);
        ASSERT_EQ(load.actions.size(), 1u);
        EXPECT_EQ(load.actions[0].title, expected->loadAction);
        EXPECT_EQ(load.actions[0].identifier, "VXTUserNotificationActionLoad") << "identifiers are never translated";
        EXPECT_EQ(load.category, "VXTUserNotificationCategoryLoad");
        const ipc::LocalNotification automix = Engine::automixNotification(texts);
        EXPECT_EQ(automix.alertTitle, expected->automixTitle);
        EXPECT_EQ(automix.alertBody, expected->automixBody);
        ASSERT_EQ(automix.actions.size(), 1u);
        EXPECT_EQ(automix.actions[0].title, "Automix");
        EXPECT_EQ(automix.actions[0].identifier, "VXTUserNotificationActionAutomix");
    }
}

// Every language has every English text, and keeps the deck number's field where the
// English text has one.
TEST(NotificationTextsTest, EveryLanguageTranslatesEveryNotificationText) {
    const auto english =
        text::StringTable::load(kResources / "en.lproj" / (std::string(Engine::kNotificationTable) + ".strings"));
    ASSERT_TRUE(english) << english.error().message();
    std::set<std::string> keys;
    std::ifstream file(kResources / "en.lproj" / (std::string(Engine::kNotificationTable) + ".strings"));
    const std::regex entry(R"re(^"([^"\\]*)"\s*=)re");
    std::smatch match;
    for (std::string line; std::getline(file, line);)
        if (std::regex_search(line, match, entry))
            keys.insert(match[1]);
    ASSERT_TRUE(keys.count("Song ending"));

    std::size_t languages = 0;
    for (const auto& folder : std::filesystem::directory_iterator(kResources)) {
        if (folder.path().extension() != ".lproj")
            continue;
        ++languages;
        const auto table =
            text::StringTable::load(folder.path() / (std::string(Engine::kNotificationTable) + ".strings"));
        ASSERT_TRUE(table) << folder.path() << ": " << table.error().message();
        for (const std::string& key : keys) {
            const std::string* value = table->find(key);
            ASSERT_TRUE(value) << folder.path().filename() << " lacks \"" << key << "\"";
            EXPECT_EQ(key.find("%ld") != std::string::npos, value->find("%ld") != std::string::npos)
                << folder.path().filename() << ": \"" << *value << "\"";
        }
    }
    EXPECT_GE(languages, 2u);
}

TEST_F(EngineTest, TheEngineSendsItsNotificationsInTheLanguageItIsGiven) {
    const text::Localization german(kResources, "de");
    m_catalog.songs = {makeSong(0xB2, "Bravo", 180, 100, "5A")};
    engine().setLocalization(german);
    load(1, 0xB2);
    send(deckAction(1, 0));
    m_loop.advance(190);
    ASSERT_EQ(m_notifications.size(), 2u) << "automix offered, then the stopped deck";
    EXPECT_EQ(m_notifications[0].alertTitle, "Titel endet");
    EXPECT_EQ(m_notifications[1].alertTitle, "Deck 1 hat angehalten");
    EXPECT_EQ(m_notifications[1].actions.at(0).title, "Titel laden");
}

} // namespace
