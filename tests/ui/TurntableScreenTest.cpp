#include <chrono>
#include <cmath>

#include "ScreenTestFixture.h"
#include "TestPictures.h"
#include "model/VXAWTurntable.h"
#include "platform/runtime/Timer.h"
#include "ui/PlaybackProgress.h"
#include "ui/VXAWLibraryInterfaceController.h"
#include "ui/VXAWQueueInterfaceController.h"
#include "ui/VXAWTurntableInterfaceController.h"

using namespace vexo;
using namespace vexo::ui;
using namespace vexo::ui::testing;
using nlohmann::json;
using plist::Dictionary;
using plist::Value;

namespace {

std::string imageName(const json& object, const char* slot = "backgroundImage") {
    const json& image = object[slot];
    return image.is_object() && image.contains("name") ? image["name"].get<std::string>() : std::string();
}

class TurntableScreenTest : public ScreenTest {
protected:
    // What the page of an empty deck shows: dashes, the idle pictures and a running animation.
    void expectIdle() const {
        for (const char* outlet : {"nameLabel", "artistLabel", "keyLabel", "bpmLabel"})
            EXPECT_EQ(visible(outlet)["text"], "--") << outlet;
        EXPECT_EQ(imageName(visible("playButton")), "turntable-play");
        EXPECT_EQ(imageName(visible("previousButton")), "turntable-prev");
        EXPECT_EQ(imageName(visible("nextButton")), "turntable-next");
        EXPECT_EQ(imageName(visible("artworkButton")), "turntable-artwork-vexo");
        EXPECT_EQ(visible("artworkGroup")["animation"]["running"], true);
    }
    // The song information of deck `number` as the phone writes it.
    void phoneLoadsSong(int number, Dictionary song) {
        phoneWrites("turntableSongInfo" + std::to_string(number), songInfo(std::move(song)));
    }
    static Dictionary song(std::int64_t duration) {
        return {{"songID", Value("s1")},
                {"name", Value("Night Drive")},
                {"artist", Value("Kasso")},
                {"duration", Value(duration)}};
    }
};

} // namespace

TEST_F(TurntableScreenTest, AnEmptyDeckShowsDashesIdleImagesAndOneAnimation) {
    start();
    expectIdle();
    EXPECT_EQ(imageName(visible("playGroup")), "tracking-0-f.png");
    EXPECT_EQ(visible("artworkGroup")["animation"]["startCount"], 1);

    // A repaint on the next activation does not restart it.
    showPage(1);
    showPage(0);
    EXPECT_EQ(visible("artworkGroup")["animation"]["startCount"], 1);
    EXPECT_TRUE(page<VXAWTurntableInterfaceController>(0)->isAnimatingArtwork());
}

// From the phone's messages through the transport to what the page shows and sends.
TEST_F(TurntableScreenTest, ShowsThePhonesDeckAndPollsWhilePlaying) {
    startOn(0);
    Dictionary loaded = song(240);
    loaded.emplace("artworkImage", Value(stripedPng(60, 60, {kRed})));
    phoneLoadsSong(1, loaded);
    phoneWrites("turntableStatus1", Value(Dictionary{
                                        {"playing", Value(true)},
                                        {"currentTime", Value(120)},
                                        {"currentDisplayTime", Value("2:00")},
                                        {"autoLoopBeatInterval", Value(0.125f)},
                                        {"looping", Value(true)},
                                        {"fxName", Value("Echo")},
                                        {"fxEnabled", Value(true)},
                                        {"fxLowPassEnabled", Value(true)},
                                        {"bpm", Value(128)},
                                        {"key", Value("8A")},
                                    }));
    EXPECT_EQ(visible("nameLabel")["text"], "Night Drive");
    EXPECT_EQ(visible("artistLabel")["text"], "Kasso");
    EXPECT_EQ(visible("bpmLabel")["text"], "128 BPM");
    EXPECT_EQ(visible("keyLabel")["text"], "8A");
    EXPECT_EQ(visible("currentTimeLabel")["text"], "2:00");
    EXPECT_EQ(visible("autoLoopButton")["title"], "1/16");
    EXPECT_EQ(imageName(visible("autoLoopButtonGroup")), "turntable-button-center-active");
    EXPECT_EQ(visible("fxButtonLabel")["text"], "Echo");
    EXPECT_EQ(imageName(visible("fxButtonGroup")), "turntable-button-center-active");
    EXPECT_EQ(visible("fxButtonTitleLabel")["textColor"]["red"], 1.0);
    EXPECT_EQ(imageName(visible("fxLowPassButton")), "turntable-button-seg2-left-active");
    EXPECT_EQ(imageName(visible("fxHighPassButton")), "turntable-button-seg2-right");
    EXPECT_EQ(imageName(visible("playButton")), "turntable-pause-active");
    EXPECT_EQ(imageName(visible("previousButton")), "turntable-prev-active");
    EXPECT_EQ(imageName(visible("playGroup")), "tracking-active-24-f.png");
    EXPECT_EQ(visible("durationTimer")["running"], true);
    EXPECT_EQ(visible("artworkGroup")["animation"]["running"], false);
    const json artwork = visible("artworkButton")["backgroundImage"];
    EXPECT_EQ(artwork["type"], "image/png");
    EXPECT_EQ(artwork["width"], 92);
    EXPECT_EQ(artwork["height"], 92);

    // The deck's own poll and the page's sync timer each ask once a second, on the main loop.
    EXPECT_TRUE(takeSent().empty());
    m_loop.advance(1.0);
    EXPECT_EQ(takeSent(), (std::vector<Value>{deckAction(1, 16), deckAction(1, 16)}));

    phoneWrites("turntableStatus1", Value(Dictionary{{"currentTime", Value(120)}}));
    EXPECT_EQ(imageName(visible("playButton")), "turntable-play-active");
    EXPECT_EQ(imageName(visible("playGroup")), "tracking-24-f.png");
    EXPECT_EQ(visible("durationTimer")["running"], false);
    for (const char* outlet : {"bpmLabel", "keyLabel", "currentTimeLabel"})
        EXPECT_EQ(visible(outlet)["text"], "--") << outlet;
    EXPECT_EQ(visible("fxButtonTitleLabel")["textColor"]["red"], 2.0 / 3.0);
    EXPECT_TRUE(visible("fxButtonLabel")["text"].is_null()) << "no effect name clears the label, no dashes";
    m_loop.advance(3.0);
    EXPECT_TRUE(takeSent().empty());
}

TEST_F(TurntableScreenTest, ProgressFramesAreUnclampedSinglePrecisionFractionsOf49) {
    struct Row {
        std::int64_t currentTime;
        std::int64_t duration;
        std::int64_t index;
    };
    const Row rows[] = {
        {120, 240, 24},
        {240, 240, 49},
        {0, 240, 0},
        {239, 240, 48},
        {300, 240, 61},
        {-30, 240, -6},
        // Seconds of a long mix lose precision as 32-bit floats before dividing.
        {16777217, 16777216, 49},
    };
    for (const Row& row : rows)
        EXPECT_EQ(playbackProgressIndex(row.currentTime, row.duration), row.index)
            << row.currentTime << " / " << row.duration;

    start();
    phoneLoadsSong(1, song(240));
    const auto deck1 = deck(1);
    for (auto [time, playing, name] :
         {std::tuple{300, false, "tracking-61-f.png"}, std::tuple{-30, true, "tracking-active--6-f.png"},
          std::tuple{120, true, "tracking-active-24-f.png"}}) {
        deck1->setPlaying(playing);
        deck1->setCurrentTime(time);
        EXPECT_EQ(imageName(visible("playGroup")), name) << time;
    }
}

TEST_F(TurntableScreenTest, AutoLoopTitles) {
    const std::pair<double, const char*> rows[] = {
        {0.125, "1/16"}, {0.25, "1/4"}, {0.5, "1/2"}, {0.75, ""}, {1.0, "1"}, {1.5, "2"},
        {4, "4"},        {32, "32"},    {0, ""},      {-2, ""},   {0.1, ""},  {std::nan(""), ""},
    };
    for (auto [beats, title] : rows)
        EXPECT_EQ(VXAWTurntableInterfaceController::autoLoopTitle(beats), title) << beats;
    // The phone's single-precision 0.1 is not an eighth either.
    EXPECT_EQ(VXAWTurntableInterfaceController::autoLoopTitle(static_cast<double>(0.1f)), "");
}

TEST_F(TurntableScreenTest, EachCommandSendsItsDeckActionWithIntegerNumbers) {
    startOn(2);
    const std::pair<const char*, std::int64_t> rows[] = {
        {"togglePlayback", 0},
        {"skipForward", 2},
        {"skipBackward", 3},
        {"next", 4},
        {"previous", 5},
        {"autoLoopDurationHalf", 8},
        {"autoLoopDurationDouble", 9},
        {"toggleLooping", 10},
        {"fxSelectNext", 11},
        {"fxSelectPrevious", 12},
        {"toggleFx", 13},
        {"toggleFxLowPass", 14},
        {"toggleFxHighPass", 15},
    };
    for (auto [action, code] : rows) {
        tapAction(action);
        const std::vector<Value> sent = takeSent();
        ASSERT_EQ(sent.size(), 1u) << action;
        EXPECT_EQ(sent[0], deckAction(2, code)) << action;
        const Value& contents = sent[0]["contents"];
        EXPECT_EQ(contents.count(), 2u) << "no params: " << action;
        EXPECT_NE(contents["action"].asInteger(), nullptr) << action;
        EXPECT_NE(contents["turntable"].asInteger(), nullptr) << action;
    }
    deck(2)->setPlaying(true);
    tapAction("togglePlayback");
    EXPECT_EQ(takeSent(), std::vector<Value>{deckAction(2, 1)});
}

TEST_F(TurntableScreenTest, KeepsOneSyncTimerWhilePlayingAndActive) {
    start();
    phoneLoadsSong(1, song(240));
    const auto controller = page<VXAWTurntableInterfaceController>(0);
    const auto deck1 = deck(1);

    deck1->setPlaying(true);
    const auto first = controller->durationSyncTimer();
    ASSERT_TRUE(first && first->isValid());
    deck1->setPlaying(true);
    EXPECT_EQ(controller->durationSyncTimer(), first) << "playing twice keeps the one timer";
    deck1->setPlaying(false);
    EXPECT_FALSE(controller->durationSyncTimer());
    EXPECT_FALSE(first->isValid());

    deck1->setPlaying(true);
    const auto second = controller->durationSyncTimer();
    showPage(1);
    EXPECT_FALSE(controller->durationSyncTimer()) << "deactivation stops it while playing";
    EXPECT_FALSE(second->isValid());
    showPage(0);
    EXPECT_TRUE(controller->durationSyncTimer()) << "the first notice of a playing deck starts a new one";
}

TEST_F(TurntableScreenTest, ArtworkFallsBackToTheDefaultPictureAndUndecodableArtworkShowsNone) {
    start();
    phoneLoadsSong(1, song(200));
    EXPECT_EQ(visible("artworkButton")["backgroundImage"]["width"], 92) << "default-artwork, as a badge";

    Dictionary broken = song(200);
    broken["songID"] = Value("s2");
    broken.emplace("artworkImage", Value(plist::Data{'n', 'o', 't', ' ', 'a', 'n', ' ', 'i', 'm', 'a', 'g', 'e'}));
    phoneLoadsSong(1, broken);
    EXPECT_TRUE(visible("artworkButton")["backgroundImage"].is_null());
    EXPECT_EQ(visible("nameLabel")["text"], "Night Drive");
}

TEST_F(TurntableScreenTest, LoadActionsBringTheirDeckForwardAndAutomixTheMixer) {
    startOn(0);
    expectOk(
        m_host->deliverNotificationAction("VXTUserNotificationActionLoad", Value(Dictionary{{"turntable", Value(2)}})));
    EXPECT_EQ(m_host->currentPage(), 2u);
    expectOk(
        m_host->deliverNotificationAction("VXTUserNotificationActionLoad", Value(Dictionary{{"turntable", Value(1)}})));
    EXPECT_EQ(m_host->currentPage(), 0u);
    EXPECT_TRUE(takeSent().empty());

    expectOk(m_host->deliverNotificationAction("VXTUserNotificationActionAutomix",
                                               Value(Dictionary{{"turntable", Value(1)}})));
    EXPECT_EQ(m_host->currentPage(), 1u) << "an automix action moves no deck page, only the mixer's";
    EXPECT_EQ(takeSent(), std::vector<Value>{mixerAction(6)});
    phoneWrites("mixerStatus", Value(Dictionary{{"automixActive", Value(true)}}));
    showPage(0);
    expectOk(m_host->deliverNotificationAction("VXTUserNotificationActionAutomix", Value(Dictionary{})));
    EXPECT_EQ(m_host->currentPage(), 1u);
    EXPECT_EQ(takeSent(), std::vector<Value>{mixerAction(6)}) << "automix on, whatever it is now";

    // Without user info the identifier is lost and no page moves.
    expectOk(m_host->deliverNotificationAction("VXTUserNotificationActionAutomix", Value()));
    expectOk(m_host->deliverNotificationAction("VXTUserNotificationActionLoad", Value()));
    EXPECT_EQ(m_host->currentPage(), 1u);
    EXPECT_TRUE(takeSent().empty());
}

TEST_F(TurntableScreenTest, PresentsTheLibraryWithTheDeckAndTheQueueWithItsNumber) {
    start();
    showPage(2);
    tapAction("showQueue");
    json queue = visibleScreen();
    EXPECT_EQ(queue["controller"], "queue");
    EXPECT_EQ(queue["context"]["turntableNumber"], 2);
    tapAction("close");
    EXPECT_EQ(visibleScreen()["controller"], "turntable2");

    tapAction("showLibrary");
    EXPECT_EQ(visibleScreen()["controller"], "library");
    const auto library = std::dynamic_pointer_cast<VXAWLibraryInterfaceController>(m_host->visibleController());
    ASSERT_TRUE(library);
    EXPECT_EQ(library->turntable(), deck(2));
}

TEST_F(TurntableScreenTest, ADeckEmptiedWhilePlayingGoesIdleButKeepsItsSyncTimer) {
    start();
    phoneLoadsSong(1, song(240));
    phoneWrites("turntableStatus1", Value(Dictionary{{"playing", Value(true)}, {"currentTime", Value(30)}}));
    const auto controller = page<VXAWTurntableInterfaceController>(0);
    const auto syncTimer = controller->durationSyncTimer();
    ASSERT_TRUE(syncTimer);

    phoneWrites("turntableSongInfo1", Value(Dictionary{}));
    expectIdle();
    EXPECT_EQ(visible("artworkGroup")["animation"]["startCount"], 2) << "once at start, once now";
    EXPECT_EQ(controller->durationSyncTimer(), syncTimer) << "kept until the page goes or a song stops";
    showPage(1);
    EXPECT_FALSE(controller->durationSyncTimer());
}

// The running clock reads the phone's last position, runs on from it while the deck plays,
// and holds it while paused, also across a seek.
TEST_F(TurntableScreenTest, TheRunningClockAgreesWithThePhonesPosition) {
    start();
    phoneLoadsSong(1, song(240));
    const auto shownSeconds = [this] {
        const json timer = visible("durationTimer");
        const double end = timer["running"] == true ? std::chrono::duration<double>(m_now.time_since_epoch()).count()
                                                    : timer["stoppedAt"].get<double>();
        return std::llround(end - timer["date"].get<double>());
    };
    struct Row {
        int secondsLater;
        bool playing;
        std::int64_t currentTime;
        std::int64_t shown;
    };
    const Row rows[] = {
        {0, true, 120, 120},                         // starts at the phone's position, not at 0:00
        {3, true, 120, 120},                         // a late status pulls it back rather than letting it run ahead
        {2, true, 125, 125},   {4, false, 129, 129}, // paused: holds the position
        {30, false, 129, 129}, {1, false, 60, 60},   // skipped back while paused
        {5, true, 60, 60},                           // plays on from there
        {7, true, 67, 67},
    };
    for (const Row& row : rows) {
        m_now += std::chrono::seconds(row.secondsLater);
        phoneWrites("turntableStatus1",
                    Value(Dictionary{{"playing", Value(row.playing)}, {"currentTime", Value(row.currentTime)}}));
        EXPECT_EQ(visible("durationTimer")["running"], row.playing) << row.currentTime;
        EXPECT_EQ(shownSeconds(), row.shown) << row.currentTime;
    }
}
