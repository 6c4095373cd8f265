#pragma once

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "model/Environment.h"
#include "model/VXAWModel.h"
#include "model/VXAWProtocol.h"
#include "platform/runtime/DeterministicRunLoop.h"
#include "platform/runtime/UserDefaults.h"
#include "platform/text/LocaleSettings.h"
#include "platform/text/Localization.h"
#include "platform/watchkit/ControllerRegistry.h"
#include "platform/watchkit/ExtensionHost.h"
#include "platform/watchkit/InterfaceObject.h"
#include "platform/watchkit/LayoutLoader.h"
#include "support/RecordingParentApplication.h"
#include "support/ScopedContainerRoot.h"
#include "support/TemporaryDirectory.h"
#include "support/WatchSnapshot.h"
#include "transport/MMWormhole.h"
#include "ui/InterfaceClasses.h"
#include "ui/VXAWTurntable1InterfaceController.h"
#include "ui/VXAWTurntable2InterfaceController.h"

namespace vexo::ui::testing {

// The application's real layout and classes on an extension host, in a fresh model
// environment per test: a temporary container, a virtual-time main loop, a recording phone
// link, user defaults in a temporary file, and a "phone" transport that writes status
// messages as the phone application does.
//
// Texts and numbers are those of the locale VEXO_SCREEN_TEST_LOCALE names ("de_DE"), en_US
// when it is unset; the test binary is registered once for each (see CMakeLists.txt). The
// language is the process's for good once a text has been looked up, so one run keeps one.
class ScreenTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_containerRoot.set(m_root.path().string());
        text::LocaleSettings::setVariables({.vexoLanguage = language(), .vexoLocale = locale()});
        m_previousLoop = runtime::RunLoop::setCurrent(&m_loop);
        model::installEnvironment({&m_loop, m_parent, nullptr, makeDefaults()});
        m_phone = std::make_unique<transport::MMWormhole>(std::string(model::VXAWWormholeApplicationGroupIdentifier),
                                                          std::string(model::kWormholeMessageDirectory), &m_loop);
        registerInterfaceClasses(m_registry);
        watchkit::LayoutLoadResult loaded =
            watchkit::LayoutLoader::loadFile(watchkit::InterfaceLayout::defaultPath(), m_registry);
        ASSERT_TRUE(loaded.ok()) << loaded.errorText();
        watchkit::ExtensionHost::Options options;
        options.clock = [this] { return m_now; };
        options.localization = &text::Localization::main();
        m_host = std::make_unique<watchkit::ExtensionHost>(m_loop, m_registry, std::move(*loaded.layout),
                                                           std::move(options));
    }

    void TearDown() override {
        m_host.reset();
        // The slots hold pages of this test's model; the next test builds its own.
        VXAWTurntable1InterfaceController::setSharedController(nullptr);
        VXAWTurntable2InterfaceController::setSharedController(nullptr);
        m_phone.reset();
        model::installEnvironment({});
        m_loop.runUntilIdle();
        runtime::RunLoop::setCurrent(m_previousLoop);
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

    std::shared_ptr<runtime::UserDefaults> makeDefaults() const {
        return std::make_shared<runtime::UserDefaults>(m_root.path() / "defaults.plist");
    }

    // Starts the host (the pages are made in the layout's order) and settles the loop.
    void start() {
        ASSERT_TRUE(m_host->start().ok());
        m_loop.runUntilIdle();
    }

    // Writes `message` under `identifier` as the phone does, and delivers it.
    void phoneWrites(std::string_view identifier, const plist::Value& message) {
        m_phone->passMessageObject(message, identifier);
        m_loop.runUntilIdle();
    }

    // The dictionaries handed to the phone application since the last call.
    std::vector<plist::Value> takeSent() {
        std::vector<plist::Value> sent = m_parent->dictionaries();
        m_parent->clear();
        return sent;
    }

    // Runs an input event and settles the loop; the event must be accepted.
    void expectOk(const watchkit::EventResult& result) {
        EXPECT_TRUE(result.ok()) << result.error();
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

    // Shows page `index` (0 deck 1, 1 mixer, 2 deck 2).
    void showPage(std::size_t index) { expectOk(m_host->swipeToPage(index)); }

    template <class C> std::shared_ptr<C> page(std::size_t index) const {
        return std::dynamic_pointer_cast<C>(m_host->pageController(index));
    }

    // The host's clock; tests move it.
    std::chrono::system_clock::time_point m_now{std::chrono::seconds(1'700'000'000)};
    vexo::testing::TemporaryDirectory m_root;
    vexo::testing::ScopedContainerRoot m_containerRoot;
    runtime::DeterministicRunLoop m_loop;
    runtime::RunLoop* m_previousLoop = nullptr;
    std::shared_ptr<vexo::testing::RecordingParentApplication> m_parent =
        std::make_shared<vexo::testing::RecordingParentApplication>();
    std::unique_ptr<transport::MMWormhole> m_phone;
    watchkit::ControllerRegistry m_registry;
    std::unique_ptr<watchkit::ExtensionHost> m_host;
};

// {"identifier": identifier, "contents": contents}, as a deck or the mixer hands it over.
inline plist::Value envelope(std::string_view identifier, plist::Dictionary contents) {
    return plist::Value(
        plist::Dictionary{{"identifier", plist::Value(identifier)}, {"contents", plist::Value(std::move(contents))}});
}

// A deck action envelope.
inline plist::Value deckAction(std::int64_t deck, std::int64_t action) {
    return envelope("turntableAction", {{"turntable", plist::Value(deck)}, {"action", plist::Value(action)}});
}

// A mixer action envelope, with parameters when given.
inline plist::Value mixerAction(std::int64_t action, std::optional<plist::Dictionary> params = std::nullopt) {
    plist::Dictionary contents{{"action", plist::Value(action)}};
    if (params)
        contents.emplace("params", plist::Value(std::move(*params)));
    return envelope("mixerAction", std::move(contents));
}

} // namespace vexo::ui::testing
