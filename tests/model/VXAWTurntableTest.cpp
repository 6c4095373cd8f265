#include "model/VXAWTurntable.h"

#include "platform/runtime/Timer.h"
#include "support/KeyPathRecorder.h"
#include "support/WatchFixture.h"

using namespace vexo;
using namespace vexo::model;
using plist::Dictionary;
using plist::Value;
using vexo::testing::deckAction;
using vexo::testing::KeyPathRecorder;
using vexo::testing::songInfo;

namespace {

const std::vector<std::string> kObservedKeys = {
    "song",    "playing", "currentTime", "currentDisplayTime", "autoLoopBeatInterval",
    "looping", "fxName",  "fxEnabled",   "fxLowPassEnabled",   "fxHighPassEnabled",
    "bpm",     "key"};

const Dictionary kPlayingStatus{
    {"playing", Value(true)},
    {"currentTime", Value(61)},
    {"currentDisplayTime", Value("1:01")},
    {"autoLoopBeatInterval", Value(0.1)},
    {"looping", Value(true)},
    {"fxName", Value("Echo")},
    {"fxEnabled", Value(true)},
    {"fxLowPassEnabled", Value(false)},
    {"fxHighPassEnabled", Value(true)},
    {"bpm", Value("128")},
    {"key", Value("8A")},
};

class VXAWTurntableTest : public vexo::testing::WatchFixture {};

} // namespace

TEST_F(VXAWTurntableTest, StartsFromTheStoredSongButNeverTheStoredStatus) {
    phoneWrites("turntableStatus1", Value(kPlayingStatus));
    phoneWrites("turntableSongInfo1", songInfo(Dictionary{{"songID", Value("S1")}, {"name", Value("Intro")}}));

    VXAWTurntable deck(1);
    ASSERT_TRUE(deck.song());
    EXPECT_EQ(deck.song()->name(), "Intro");
    EXPECT_FALSE(deck.isPlaying());
    EXPECT_EQ(deck.currentDisplayTime(), std::nullopt);
    EXPECT_TRUE(m_phone->messageWithIdentifier("turntableStatus1").isNull());
    EXPECT_FALSE(m_phone->messageWithIdentifier("turntableSongInfo1").isNull());
    EXPECT_EQ(takeSent(), std::vector{deckAction(1, 16)});
}

TEST_F(VXAWTurntableTest, AppliesEveryStatusKeyWithItsConversion) {
    VXAWTurntable deck(2);
    phoneWrites("turntableStatus2", Value(kPlayingStatus));
    EXPECT_TRUE(deck.isPlaying());
    EXPECT_EQ(deck.currentTime(), 61);
    EXPECT_EQ(deck.currentDisplayTime(), "1:01");
    EXPECT_EQ(deck.autoLoopBeatInterval(), 0.10000000149011612);
    EXPECT_TRUE(deck.isLooping());
    EXPECT_EQ(deck.fxName(), "Echo");
    EXPECT_TRUE(deck.isFxEnabled());
    EXPECT_FALSE(deck.isFxLowPassEnabled());
    EXPECT_TRUE(deck.isFxHighPassEnabled());
    EXPECT_EQ(deck.bpm(), 128);
    EXPECT_EQ(deck.key(), "8A");

    // A status of nothing but "looping" resets every other property, "playing" included.
    phoneWrites("turntableStatus2", Value(Dictionary{{"looping", Value(true)}}));
    EXPECT_FALSE(deck.isPlaying());
    EXPECT_EQ(deck.currentTime(), 0);
    EXPECT_EQ(deck.currentDisplayTime(), std::nullopt);
    EXPECT_EQ(deck.fxName(), std::nullopt);
    EXPECT_EQ(deck.bpm(), 0);
    EXPECT_TRUE(deck.isLooping());
}

TEST_F(VXAWTurntableTest, ARepeatedStatusNotifiesEveryPropertyButPlaying) {
    VXAWTurntable deck(1);
    KeyPathRecorder recorder;
    recorder.observe(deck, kObservedKeys);

    phoneWrites("turntableStatus1", Value(kPlayingStatus));
    const std::vector<std::string> everyStatusKey = {
        "playing", "currentTime", "currentDisplayTime", "autoLoopBeatInterval", "looping",
        "fxName",  "fxEnabled",   "fxLowPassEnabled",   "fxHighPassEnabled",    "bpm",
        "key"};
    EXPECT_EQ(recorder.take(), everyStatusKey);

    phoneWrites("turntableStatus1", Value(kPlayingStatus));
    EXPECT_EQ(recorder.take(), std::vector<std::string>(everyStatusKey.begin() + 1, everyStatusKey.end()));
}

TEST_F(VXAWTurntableTest, PollsOnceASecondOnlyWhilePlaying) {
    VXAWTurntable deck(1);
    takeSent();
    m_loop.advance(5);
    EXPECT_TRUE(takeSent().empty()) << "no poll before the deck plays";

    phoneWrites("turntableStatus1", Value(kPlayingStatus));
    const auto timer = deck.currentTimeUpdateTimer();
    ASSERT_TRUE(timer && timer->isValid());
    phoneWrites("turntableStatus1", Value(kPlayingStatus));
    EXPECT_EQ(deck.currentTimeUpdateTimer(), timer) << "a second status keeps the one timer";

    m_loop.advance(3);
    EXPECT_EQ(takeSent(), std::vector(3, deckAction(1, 16)));

    // A status without "playing" counts as stopped.
    phoneWrites("turntableStatus1", Value(Dictionary{{"bpm", Value(120)}}));
    EXPECT_FALSE(deck.isPlaying());
    EXPECT_EQ(deck.currentTimeUpdateTimer(), nullptr);
    EXPECT_FALSE(timer->isValid());
    m_loop.advance(3);
    EXPECT_TRUE(takeSent().empty());
}

TEST_F(VXAWTurntableTest, MergesTheSameSongAndReplacesAnotherOne) {
    VXAWTurntable deck(1);
    KeyPathRecorder recorder;
    recorder.observe(deck, {"song"});
    const Dictionary song{{"songID", Value("S1")}, {"name", Value("Intro")}, {"artist", Value("Vexo")}};

    phoneWrites("turntableSongInfo1", songInfo(song));
    const auto first = deck.song();
    EXPECT_EQ(recorder.take().size(), 1u);

    phoneWrites("turntableSongInfo1", songInfo(song));
    EXPECT_TRUE(recorder.take().empty()) << "same identifier, same metadata: no notice";

    Dictionary renamed = song;
    renamed["name"] = Value("Intro (Edit)");
    phoneWrites("turntableSongInfo1", songInfo(renamed));
    EXPECT_EQ(recorder.take().size(), 1u);
    EXPECT_EQ(deck.song(), first);
    EXPECT_EQ(deck.song()->name(), "Intro (Edit)");

    Dictionary noIdentifier = song;
    noIdentifier.erase("songID");
    phoneWrites("turntableSongInfo1", songInfo(noIdentifier));
    const auto second = deck.song();
    EXPECT_NE(second, first);
    phoneWrites("turntableSongInfo1", songInfo(noIdentifier));
    EXPECT_NE(deck.song(), second) << "without an identifier every message is a new song";

    phoneWrites("turntableSongInfo1", Value(Dictionary{}));
    EXPECT_EQ(deck.song(), nullptr);
    EXPECT_EQ(recorder.take().size(), 3u);
}

TEST_F(VXAWTurntableTest, IgnoresTheOtherDecksMessagesAndNothing) {
    VXAWTurntable deck(1);
    phoneWrites("turntableStatus2", Value(kPlayingStatus));
    phoneWrites("turntableSongInfo2", songInfo(Dictionary{{"songID", Value("S2")}}));
    deck.processMessageWithIdentifier("turntableStatus1", Value());
    EXPECT_FALSE(deck.isPlaying());
    EXPECT_EQ(deck.song(), nullptr);
    EXPECT_EQ(deck.bpm(), 0);
}

TEST_F(VXAWTurntableTest, SendsTheEnvelopeWithParamsOnlyWhenGiven) {
    VXAWTurntable deck(2);
    takeSent();
    deck.sendActionMessage(VXAWTurntableActionPlay);
    deck.sendActionMessage(VXAWTurntableActionLoadItem, Value(Dictionary{{"itemID", Value("AB12")}}));
    const auto sent = takeSent();
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[0], deckAction(2, 0));
    EXPECT_EQ(sent[0]["contents"].count(), 2u);
    EXPECT_EQ(sent[1], deckAction(2, 6, Dictionary{{"itemID", Value("AB12")}}));
    EXPECT_TRUE(sent[1]["contents"]["action"].asInteger());
}

// A model first touched where the thread has no current loop still hears the phone and polls,
// on the environment's main loop.
TEST_F(VXAWTurntableTest, ListensAndPollsOnTheMainLoopWhateverLoopIsCurrent) {
    runtime::RunLoop::setCurrent(nullptr);
    auto deck = std::make_shared<VXAWTurntable>(1);
    deck->processMessageWithIdentifier("turntableStatus1", Value(Dictionary{{"playing", Value(true)}}));
    ASSERT_TRUE(deck->currentTimeUpdateTimer());
    EXPECT_TRUE(deck->currentTimeUpdateTimer()->isValid());
    runtime::RunLoop::setCurrent(&m_loop);
    takeSent();
    m_loop.advance(1.0);
    EXPECT_EQ(takeSent(), std::vector<Value>{deckAction(1, 16)});

    // The deck registered for the phone's notices while no loop was current.
    phoneWrites("turntableStatus1", Value(Dictionary{{"playing", Value(false)}, {"bpm", Value(99)}}));
    EXPECT_EQ(deck->bpm(), 99);
    EXPECT_FALSE(deck->currentTimeUpdateTimer());
}
