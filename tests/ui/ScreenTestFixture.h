#pragma once

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/text/LocaleSettings.h"
#include "platform/text/Localization.h"
#include "platform/watchkit/ControllerRegistry.h"
#include "platform/watchkit/ExtensionHost.h"
#include "platform/watchkit/InterfaceObject.h"
#include "platform/watchkit/LayoutLoader.h"
#include "support/WatchFixture.h"
#include "support/WatchSnapshot.h"
#include "ui/InterfaceClasses.h"
#include "ui/VXAWTurntable1InterfaceController.h"
#include "ui/VXAWTurntable2InterfaceController.h"

namespace vexo::ui::testing {

// The application's real layout and classes on an extension host, over the models of a
// WatchFixture.
//
// Texts and numbers are those of the locale VEXO_SCREEN_TEST_LOCALE names ("de_DE"), en_US
// when it is unset; the test binary is registered once for each (see CMakeLists.txt). The
// language is the process's for good once a text has been looked up, so one run keeps one.
class ScreenTest : public vexo::testing::WatchFixture {
protected:
    void SetUp() override {
        text::LocaleSettings::setVariables({.vexoLanguage = language(), .vexoLocale = locale()});
        WatchFixture::SetUp();
        registerInterfaceClasses(m_registry);
        Expected<watchkit::InterfaceLayout> loaded =
            watchkit::LayoutLoader::loadFile(watchkit::InterfaceLayout::defaultPath(), m_registry);
        ASSERT_TRUE(loaded) << loaded.error().message();
        watchkit::ExtensionHost::Options options;
        options.clock = [this] { return m_now; };
        options.localization = &text::Localization::main();
        m_host = std::make_unique<watchkit::ExtensionHost>(m_loop, m_registry, std::move(*loaded), std::move(options));
    }

    void TearDown() override {
        m_host.reset();
        // The slots hold pages of this test's model; the next test builds its own.
        VXAWTurntable1InterfaceController::setSharedController(nullptr);
        VXAWTurntable2InterfaceController::setSharedController(nullptr);
        WatchFixture::TearDown();
        text::LocaleSettings::setVariables({});
    }

    static std::string locale() {
        const char* chosen = std::getenv("VEXO_SCREEN_TEST_LOCALE");
        return chosen != nullptr && *chosen != '\0' ? chosen : "en_US";
    }
    static std::string language() { return locale().substr(0, locale().find('_')); }
    static bool german() { return language() == "de"; }
    // What the user reads for `key` in the language under test.
    static std::string localized(std::string_view key) { return text::Localization::main().localizedString(key); }
    // `english` or `german`, by the locale under test: for numbers, whose marks differ.
    static std::string inLocale(std::string_view english, std::string_view german) {
        return std::string(ScreenTest::german() ? german : english);
    }

    // Starts the host (the pages are made in the layout's order) and settles the loop.
    void start() {
        ASSERT_TRUE(m_host->start());
        m_loop.runUntilIdle();
    }

    // Starts, shows page `index` and forgets what the start-up sent to the phone.
    void startOn(std::size_t index) {
        start();
        if (index != 0)
            showPage(index);
        takeSent();
    }

    // Runs an input event and settles the loop; the event must be accepted.
    void expectOk(const watchkit::EventResult& result) {
        EXPECT_TRUE(result) << result.error().message();
        m_loop.runUntilIdle();
    }

    // The screen the user sees, as the snapshot shows it.
    nlohmann::json visibleScreen() const {
        const nlohmann::json snapshot = m_host->snapshot();
        if (snapshot["glance"]["visible"] == true)
            return snapshot["glance"]["screen"];
        for (const char* list : {"modals", "pages"}) {
            for (const auto& screen : snapshot[list])
                if (screen["id"] == snapshot["visibleScreen"])
                    return screen;
        }
        return nullptr;
    }

    // The object behind `outlet` on the visible screen, as the snapshot shows it.
    nlohmann::json visible(std::string_view outlet) const {
        return vexo::testing::findByOutlet(visibleScreen(), outlet);
    }
    std::string visibleId(std::string_view outlet) const { return visible(outlet)["id"].get<std::string>(); }
    // The identifier of the object on the visible screen whose action is `action`.
    std::string actionId(std::string_view action) const {
        return vexo::testing::findObject(visibleScreen(), "action", action)["id"].get<std::string>();
    }
    // Taps the object on the visible screen whose action is `action`.
    void tapAction(std::string_view action) { expectOk(m_host->tap(actionId(action))); }

    // Covers the visible screen with the glance and uncovers it: it deactivates and activates
    // again, as when the user glances away and back.
    void reactivate() {
        expectOk(m_host->showGlance());
        expectOk(m_host->hideGlance());
    }

    // Shows page `index` (0 deck 1, 1 mixer, 2 deck 2).
    void showPage(std::size_t index) { expectOk(m_host->swipeToPage(index)); }

    template <class C> std::shared_ptr<C> page(std::size_t index) const {
        return std::dynamic_pointer_cast<C>(m_host->pageController(index));
    }

    // The host's clock; tests move it.
    std::chrono::system_clock::time_point m_now{std::chrono::seconds(1'700'000'000)};
    watchkit::ControllerRegistry m_registry;
    std::unique_ptr<watchkit::ExtensionHost> m_host;
};

using vexo::testing::deckAction;
using vexo::testing::envelope;
using vexo::testing::mixerAction;
using vexo::testing::songInfo;

} // namespace vexo::ui::testing
