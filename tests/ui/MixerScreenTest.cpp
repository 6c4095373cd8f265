#include <cmath>

#include "ScreenTestFixture.h"
#include "TestPictures.h"
#include "model/VXAWMixer.h"
#include "model/VXAWTurntable.h"
#include "ui/VXAWLibraryInterfaceController.h"
#include "ui/VXAWMixerInterfaceController.h"

using namespace vexo;
using namespace vexo::ui;
using namespace vexo::ui::testing;
using nlohmann::json;
using plist::Dictionary;
using plist::Value;

namespace {

class MixerScreenTest : public ScreenTest {
protected:
    std::string crossfaderImage() const { return visible("crossfaderImage")["image"]["name"].get<std::string>(); }
};

} // namespace

TEST_F(MixerScreenTest, CrossfaderFramesBelongToTheLowerFrameOnABoundary) {
    const std::pair<double, int> rows[] = {
        {0.0, 0},
        {0.1, 0},
        {0.2, 0},
        {0.4, 1},
        {0.5, 2},
        {0.8, 3},
        {0.95, 4},
        {1.0, 4},
        {1.2, 4},
        {-0.1, 4},
        {std::nan(""), 4},
        // What the phone's 0.8 becomes once read as a 32-bit float lies just above the boundary.
        {static_cast<double>(0.8f), 4},
    };
    for (auto [position, frame] : rows) {
        EXPECT_EQ(VXAWMixerInterfaceController::crossfaderImageName(0, position),
                  "mixer-crossfader-manual" + std::to_string(frame) + "-f")
            << position;
        EXPECT_EQ(VXAWMixerInterfaceController::crossfaderImageName(1, position),
                  "mixer-crossfader-auto" + std::to_string(frame) + "-f")
            << position;
    }
    EXPECT_EQ(VXAWMixerInterfaceController::crossfaderImageName(2, 0.5), "mixer-crossfader-auto2-f");
}

TEST_F(MixerScreenTest, AMixerStillAtItsInitialValuesShowsThemUnchanged) {
    start();
    mixer()->setVolume(-1.0);
    mixer()->setCrossfaderPosition(0.5);
    showPage(1);
    EXPECT_EQ(visible("volumeSlider")["value"], -1.0);
    EXPECT_EQ(crossfaderImage(), "mixer-crossfader-manual2-f");
}

// From a status written through the transport to what the page shows.
TEST_F(MixerScreenTest, ShowsThePhonesMixerStatus) {
    startOn(1);
    mixer()->setTransitionMode(1);
    phoneWrites("mixerStatus", Value(Dictionary{
                                   {"volume", Value(0.75f)},
                                   {"crossfaderPosition", Value(0.3f)},
                                   {"syncActive", Value(true)},
                                   {"automixActive", Value(true)},
                                   {"transitionType", Value("Echo")},
                                   {"transitionDuration", Value(7.5f)},
                               }));
    EXPECT_EQ(visible("volumeSlider")["value"], 0.75);
    EXPECT_EQ(crossfaderImage(), "mixer-crossfader-auto1-f");
    EXPECT_EQ(visible("transitionTypeLabel")["text"], localized("Echo") + inLocale(" (7.5s)", " (7,5s)"));
    EXPECT_EQ(visible("syncButtonGroup")["backgroundColor"],
              (json{{"red", 0.918}, {"green", 0.545}, {"blue", 0.145}, {"alpha", 1.0}}));
    EXPECT_EQ(visibleScreen()["menu"]["items"][0]["title"], localized("Automix On"));
    EXPECT_EQ(visible("volumeSlider")["color"]["red"], 0.918);

    phoneWrites("mixerStatus", Value(Dictionary{{"transitionDuration", Value(8)}}));
    EXPECT_EQ(visible("transitionTypeLabel")["text"], "--") << "mode 1 without a type";
    EXPECT_EQ(visible("syncButtonGroup")["backgroundColor"]["red"], 0.133);
    EXPECT_EQ(visibleScreen()["menu"]["items"].size(), 1u);
    EXPECT_EQ(visibleScreen()["menu"]["items"][0]["title"], localized("Automix Off"));
    mixer()->setTransitionMode(0);
    EXPECT_EQ(visible("transitionTypeLabel")["text"], localized("Manual"));
}

TEST_F(MixerScreenTest, CrossfadeStepsByModeWithTheirNumberTypes) {
    startOn(1);
    struct Row {
        std::int64_t mode;
        double position;
        const char* action;
        std::optional<Value> expected; // nothing: nothing is sent
    };
    auto step = [](std::int64_t code, std::optional<Value> position) {
        return position ? mixerAction(code, Dictionary{{"crossfaderPosition", *position}}) : mixerAction(code);
    };
    const Row rows[] = {
        {0, 0.1, "crossfadeLeft", step(2, Value(0.0f))},
        {0, 0.1, "crossfadeRight", step(2, Value(static_cast<float>(static_cast<double>(0.1f) + 0.25)))},
        {0, 0.9, "crossfadeRight", step(2, Value(1.0f))},
        {0, 0.3, "crossfadeMiddle", step(2, Value(0.5))},
        {0, std::nan(""), "crossfadeRight", step(2, Value(1.0f))},
        {1, 0.1, "crossfadeLeft", step(3, std::nullopt)},
        {1, 0.1, "crossfadeMiddle", step(4, std::nullopt)},
        {1, 0.1, "crossfadeRight", step(5, std::nullopt)},
        {2, 0.1, "crossfadeLeft", std::nullopt},
        {2, 0.1, "crossfadeMiddle", std::nullopt},
        {-1, 0.1, "crossfadeRight", std::nullopt},
    };
    for (const Row& row : rows) {
        mixer()->setTransitionMode(row.mode);
        mixer()->setCrossfaderPosition(row.position);
        tapAction(row.action);
        const std::vector<Value> sent = takeSent();
        if (!row.expected) {
            EXPECT_TRUE(sent.empty()) << row.mode << " " << row.action;
            continue;
        }
        ASSERT_EQ(sent.size(), 1u) << row.mode << " " << row.action;
        EXPECT_EQ(sent[0], *row.expected) << row.mode << " " << row.action;
        const Value& sentPosition = sent[0]["contents"]["params"]["crossfaderPosition"];
        if (const auto* real = sentPosition.asReal()) {
            EXPECT_EQ(real->isSinglePrecision, std::string_view(row.action) != "crossfadeMiddle") << row.action;
        }
    }

    // Successive manual taps step on from the position the mixer echoed at once.
    mixer()->setTransitionMode(0);
    mixer()->setCrossfaderPosition(0.5);
    tapAction("crossfadeRight");
    tapAction("crossfadeRight");
    tapAction("crossfadeRight");
    const std::vector<Value> sent = takeSent();
    ASSERT_EQ(sent.size(), 3u);
    EXPECT_EQ(sent[2]["contents"]["params"]["crossfaderPosition"], Value(1.0f));
    EXPECT_EQ(crossfaderImage(), "mixer-crossfader-manual4-f");
}

TEST_F(MixerScreenTest, VolumeSyncAndAutomixCommands) {
    startOn(1);
    expectOk(m_host->slide(visibleId("volumeSlider"), 0.7f));
    std::vector<Value> sent = takeSent();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0], mixerAction(1, Dictionary{{"volume", Value(0.7f)}}));
    ASSERT_NE(sent[0]["contents"]["params"]["volume"].asReal(), nullptr);
    EXPECT_TRUE(sent[0]["contents"]["params"]["volume"].asReal()->isSinglePrecision);

    tapAction("sync");
    EXPECT_EQ(takeSent(), std::vector<Value>{mixerAction(0)});

    expectOk(m_host->openMenu());
    expectOk(m_host->pickMenuItem(0));
    EXPECT_EQ(takeSent(), std::vector<Value>{mixerAction(6)});
    EXPECT_EQ(visibleScreen()["menu"]["items"][0]["title"], localized("Automix Off")) << "until the phone confirms";
    phoneWrites("mixerStatus", Value(Dictionary{{"automixActive", Value(true)}}));
    expectOk(m_host->openMenu());
    expectOk(m_host->pickMenuItem(0));
    EXPECT_EQ(takeSent(), std::vector<Value>{mixerAction(7)});
}

TEST_F(MixerScreenTest, ShowsBothDecksAndTogglesTheirPlayback) {
    startOn(1);
    // Both decks empty: idle pictures, one animation each.
    for (const char* prefix : {"turntable1", "turntable2"}) {
        const std::string p(prefix);
        EXPECT_EQ(visible(p + "TransportButton")["backgroundImage"]["name"], "turntable-play");
        EXPECT_EQ(visible(p + "Button")["backgroundImage"]["name"], "mixer-turntable-artwork-vexo");
        EXPECT_EQ(visible(p + "Group")["animation"]["startCount"], 1);
    }

    phoneWrites("turntableSongInfo2", songInfo({{"songID", Value("a")},
                                                {"duration", Value(100)},
                                                {"artworkImage", Value(stripedPng(30, 30, {kBlue}))}}));
    phoneWrites("turntableStatus2", Value(Dictionary{{"playing", Value(true)}, {"currentTime", Value(50)}}));
    EXPECT_EQ(visible("turntable2Button")["backgroundImage"]["width"], 144);
    EXPECT_EQ(visible("turntable2TransportButton")["backgroundImage"]["name"], "turntable-pause-active");
    EXPECT_EQ(visible("turntable2TransportGroup")["backgroundImage"]["name"], "tracking-active-24-f.png");
    EXPECT_EQ(visible("turntable2Group")["animation"]["running"], false);
    EXPECT_EQ(visible("turntable1TransportGroup")["backgroundImage"]["name"], "tracking-0-f.png");
    EXPECT_EQ(visible("turntable1Group")["animation"]["startCount"], 1);

    takeSent();
    tapAction("togglePlaybackTurntable2");
    tapAction("togglePlaybackTurntable1");
    EXPECT_EQ(takeSent(), (std::vector<Value>{deckAction(2, 1), deckAction(1, 0)}));

    phoneWrites("turntableSongInfo2", Value(Dictionary{}));
    EXPECT_EQ(visible("turntable2Button")["backgroundImage"]["name"], "mixer-turntable-artwork-vexo");
    EXPECT_EQ(visible("turntable2TransportButton")["backgroundImage"]["name"], "turntable-play");
    EXPECT_EQ(visible("turntable2Group")["animation"]["startCount"], 2);
}

TEST_F(MixerScreenTest, BringsDeckPagesForwardAndPresentsTheLibraryForADeck) {
    startOn(1);
    tapAction("showTurntable2");
    EXPECT_EQ(m_host->currentPage(), 2u);
    showPage(1);
    tapAction("showTurntable1");
    EXPECT_EQ(m_host->currentPage(), 0u);

    showPage(1);
    tapAction("showLibraryTurntable2");
    const auto library = std::dynamic_pointer_cast<VXAWLibraryInterfaceController>(m_host->visibleController());
    ASSERT_TRUE(library);
    EXPECT_EQ(library->turntable(), deck(2));

    // A newer deck 1 page takes the slot: the button addresses it, not the page shown before.
    expectOk(m_host->closeModal());
    const auto newer = VXAWTurntable1InterfaceController::make();
    EXPECT_EQ(VXAWTurntable1InterfaceController::sharedController(), newer);
    tapAction("showTurntable1");
    EXPECT_EQ(m_host->currentPage(), 1u);

    // Before any deck page is made, the buttons do nothing.
    VXAWTurntable1InterfaceController::setSharedController(nullptr);
    tapAction("showTurntable1");
    EXPECT_EQ(m_host->currentPage(), 1u);
}
