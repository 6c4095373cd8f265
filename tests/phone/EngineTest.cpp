#include <cmath>
#include <functional>

#include "EngineTestFixture.h"

using namespace vexo;
using namespace vexo::phone;
using namespace vexo::phone::testing;
using plist::Dictionary;
using plist::Value;

namespace {

Value params(std::string key, Value value) {
    return Value(Dictionary{{std::move(key), std::move(value)}});
}

class EngineActionTest : public EngineTest {
protected:
    void SetUp() override {
        m_catalog.songs = {makeSong(0xA1, "Alpha", 240), makeSong(0xB2, "Bravo", 180, 100, "5A"),
                           makeSong(0xC3, "Charlie", 200, 0, "")};
        m_catalog.lists = {
            media::MediaPlaylist(7, "Set", {m_catalog.songs[2], m_catalog.songs[0], m_catalog.songs[1]})};
    }
};

} // namespace

TEST_F(EngineActionTest, EveryDeckActionAnswersWithTheStatusThatFollows) {
    engine();
    const struct {
        const char* name;
        std::function<void()> act;
        std::function<void()> check;
    } rows[] = {
        {"6 load", [&] { load(1, 0xA1); },
         [&] {
             const Value song = m_sink.last("turntableSongInfo1")["currentSong"];
             EXPECT_EQ(song["songID"], Value("A1"));
             EXPECT_EQ(song["name"], Value("Alpha"));
             EXPECT_EQ(song["duration"].integerValue(), 240);
             EXPECT_NE(song["artworkImage"].asData(), nullptr);
             EXPECT_EQ(status(1)["bpm"].integerValue(), 120);
             EXPECT_EQ(status(1)["key"], Value("8A"));
             EXPECT_FALSE(status(1)["playing"].boolValue());
         }},
        {"0 play", [&] { send(deckAction(1, 0)); }, [&] { EXPECT_TRUE(status(1)["playing"].boolValue()); }},
        {"16 after 65 s",
         [&] {
             m_loop.advance(65.4);
             send(deckAction(1, 16));
         },
         [&] {
             EXPECT_EQ(status(1)["currentTime"].integerValue(), 65);
             EXPECT_EQ(status(1)["currentDisplayTime"], Value("1:05"));
         }},
        {"2 skip forward", [&] { send(deckAction(1, 2)); },
         [&] { EXPECT_EQ(status(1)["currentTime"].integerValue(), 75); }},
        {"3 skip backward", [&] { send(deckAction(1, 3)); },
         [&] { EXPECT_EQ(status(1)["currentTime"].integerValue(), 65); }},
        {"1 pause", [&] { send(deckAction(1, 1)); }, [&] { EXPECT_FALSE(status(1)["playing"].boolValue()); }},
        {"8 halve the loop", [&] { send(deckAction(1, 8)); },
         [&] { EXPECT_EQ(status(1)["autoLoopBeatInterval"].doubleValue(), 2); }},
        {"9 double the loop", [&] { send(deckAction(1, 9)); },
         [&] { EXPECT_EQ(status(1)["autoLoopBeatInterval"].doubleValue(), 4); }},
        {"10 loop on", [&] { send(deckAction(1, 10)); }, [&] { EXPECT_TRUE(status(1)["looping"].boolValue()); }},
        {"11 next effect", [&] { send(deckAction(1, 11)); }, [&] { EXPECT_EQ(status(1)["fxName"], Value("Flanger")); }},
        {"12 previous effect twice",
         [&] {
             send(deckAction(1, 12));
             send(deckAction(1, 12));
         },
         [&] { EXPECT_EQ(status(1)["fxName"], Value("Bitcrusher")); }},
        {"13 effect on", [&] { send(deckAction(1, 13)); }, [&] { EXPECT_TRUE(status(1)["fxEnabled"].boolValue()); }},
        {"14 low-pass on", [&] { send(deckAction(1, 14)); },
         [&] { EXPECT_TRUE(status(1)["fxLowPassEnabled"].boolValue()); }},
        {"15 high-pass on", [&] { send(deckAction(1, 15)); },
         [&] { EXPECT_TRUE(status(1)["fxHighPassEnabled"].boolValue()); }},
        {"10 loop off", [&] { send(deckAction(1, 10)); }, [&] { EXPECT_FALSE(status(1)["looping"].boolValue()); }},
        {"4 next in the playlist", [&] { send(deckAction(1, 4)); },
         [&] {
             EXPECT_EQ(songID(1), Value("B2"));
             EXPECT_EQ(status(1)["currentTime"].integerValue(), 0);
             EXPECT_EQ(status(1)["key"], Value("5A"));
         }},
        {"5 previous in the playlist",
         [&] {
             send(deckAction(1, 5));
             send(deckAction(1, 5));
         },
         [&] {
             EXPECT_EQ(songID(1), Value("C3"));
             EXPECT_EQ(status(1)["bpm"].integerValue(), 0);
         }},
        {"17 glance refresh on deck 0",
         [&] {
             m_sink.writes.clear();
             send(deckAction(0, 17));
         },
         [&] {
             ASSERT_EQ(m_sink.writes.size(), 1u);
             EXPECT_EQ(m_sink.writes[0].identifier, "turntableSongInfo0");
             EXPECT_EQ(m_sink.writes[0].message["currentSong"]["songID"], Value("C3"));
         }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        row.act();
        row.check();
    }
}

TEST_F(EngineActionTest, EveryMixerActionAnswersWithTheStatusThatFollows) {
    engine();
    const Value mixer = m_sink.last("mixerStatus");
    EXPECT_EQ(mixer["crossfaderPosition"].doubleValue(), 0.5);
    EXPECT_EQ(mixer["transitionDuration"].doubleValue(), 8);
    EXPECT_EQ(mixer["availableTransitions"].count(), 4u);
    const struct {
        Value action;
        const char* key;
        Value expected;
    } rows[] = {
        {mixerAction(0), "syncActive", Value(true)},
        {mixerAction(1, params("volume", Value(0.25f))), "volume", Value(0.25)},
        {mixerAction(1, params("volume", Value(3))), "volume", Value(1.0)},
        {mixerAction(2, params("crossfaderPosition", Value(0.75))), "crossfaderPosition", Value(0.75)},
        {mixerAction(2, params("crossfaderPosition", Value(-1))), "crossfaderPosition", Value(0.0)},
        {mixerAction(6), "automixActive", Value(true)},
        {mixerAction(7), "automixActive", Value(false)},
        {mixerAction(8), "transitionDuration", Value(12.0)},
        {mixerAction(9), "transitionDuration", Value(8.0)},
        {mixerAction(10, params("transitionType", Value("Smooth"))), "transitionType", Value("Smooth")},
        {mixerAction(0), "syncActive", Value(false)},
        {mixerAction(11), "volume", Value(1.0)},
    };
    for (const auto& row : rows) {
        const std::size_t before = m_sink.of("mixerStatus").size();
        send(row.action);
        EXPECT_EQ(m_sink.of("mixerStatus").size(), before + 1) << row.key;
        EXPECT_EQ(m_sink.last("mixerStatus")[row.key].doubleValue(), row.expected.doubleValue()) << row.key;
        EXPECT_EQ(m_sink.last("mixerStatus")[row.key].stringValue(), row.expected.stringValue()) << row.key;
    }
    // The duration list stops at its ends.
    for (int step = 0; step < 10; ++step)
        send(mixerAction(9));
    EXPECT_EQ(m_sink.last("mixerStatus")["transitionDuration"].doubleValue(), 1);
    for (int step = 0; step < 10; ++step)
        send(mixerAction(8));
    EXPECT_EQ(m_sink.last("mixerStatus")["transitionDuration"].doubleValue(), 32);
}

TEST_F(EngineActionTest, TheAutoLoopHalvesAndDoublesWithinOneThirtySecondToThirtyTwoBeats) {
    engine();
    load(1, 0xA1);
    // From 4 beats: six halvings reach 1/32, where it stays; then doubling climbs to 32.
    const std::vector<std::pair<int, double>> rows = {
        {8, 2},       {8, 1},      {8, 0.5},   {8, 0.25}, {8, 0.125}, {8, 0.0625}, {8, 0.03125},
        {8, 0.03125}, {9, 0.0625}, {9, 0.125}, {9, 0.25}, {9, 0.5},   {9, 1},      {9, 2},
        {9, 4},       {9, 8},      {9, 16},    {9, 32},   {9, 32},    {8, 16},
    };
    for (std::size_t index = 0; index < rows.size(); ++index) {
        send(deckAction(1, rows[index].first));
        EXPECT_EQ(status(1)["autoLoopBeatInterval"].doubleValue(), rows[index].second) << "row " << index;
    }

    // A loop of 4 beats at 120 BPM is 2 s: from 10 s, the position stays within 10...12.
    send(deckAction(1, 8));
    send(deckAction(1, 8));
    send(deckAction(1, 2));
    send(deckAction(1, 10));
    send(deckAction(1, 0));
    for (const auto& [seconds, position] :
         std::vector<std::pair<double, std::int64_t>>{{1.5, 11}, {1, 10}, {7.2, 11}}) {
        m_loop.advance(seconds);
        send(deckAction(1, 16));
        EXPECT_EQ(status(1)["currentTime"].integerValue(), position);
    }
    EXPECT_TRUE(status(1)["playing"].boolValue());
}

TEST_F(EngineActionTest, ATransitionOfFourSecondsReachesItsTargetAfterFourSecondsWritingStatusAsItMoves) {
    engine();
    load(2, 0xB2);
    send(mixerAction(9));
    ASSERT_EQ(m_sink.last("mixerStatus")["transitionDuration"].doubleValue(), 4);
    const double start = m_loop.now();
    m_sink.writes.clear();
    send(mixerAction(5));
    EXPECT_TRUE(status(2)["playing"].boolValue()) << "the deck brought in starts";

    m_loop.advance(3.99);
    EXPECT_LT(m_sink.last("mixerStatus")["crossfaderPosition"].doubleValue(), 1);
    m_loop.advance(0.01);
    m_loop.advance(1);
    const auto writes = m_sink.of("mixerStatus");
    ASSERT_GE(writes.size(), 40u);
    double previousTime = start;
    double previousPosition = 0.5;
    for (const auto& write : writes) {
        EXPECT_LE(write.time - previousTime, 0.1 + 1e-9) << "at least ten a second";
        EXPECT_GE(write.message["crossfaderPosition"].doubleValue(), previousPosition);
        previousTime = write.time;
        previousPosition = write.message["crossfaderPosition"].doubleValue();
        if (write.time > start + 4 + 1e-9)
            break;
    }
    EXPECT_EQ(m_sink.last("mixerStatus")["crossfaderPosition"].doubleValue(), 1);
    EXPECT_NEAR(writes.back().time, start + 4, 1e-6) << "no status once it stands still";

    // To the middle and to the left, with every transition type.
    for (const char* type : {"Crossfade", "Smooth", "Echo Out", "Cut"}) {
        send(mixerAction(10, params("transitionType", Value(type))));
        send(mixerAction(3));
        m_loop.advance(2);
        const double halfway = m_sink.last("mixerStatus")["crossfaderPosition"].doubleValue();
        EXPECT_GE(halfway, 0) << type;
        EXPECT_LE(halfway, 1) << type;
        m_loop.advance(2);
        EXPECT_EQ(m_sink.last("mixerStatus")["crossfaderPosition"].doubleValue(), 0) << type;
        send(mixerAction(4));
        m_loop.advance(4);
        EXPECT_EQ(m_sink.last("mixerStatus")["crossfaderPosition"].doubleValue(), 0.5) << type;
    }
    // Setting the crossfader by hand ends a transition.
    send(mixerAction(5));
    m_loop.advance(1);
    send(mixerAction(2, params("crossfaderPosition", Value(0.2))));
    m_loop.advance(4);
    EXPECT_EQ(m_sink.last("mixerStatus")["crossfaderPosition"].doubleValue(), 0.2);
}

TEST_F(EngineActionTest, AutomixLoadsAndStartsTheNextSongOneTransitionDurationBeforeTheEnd) {
    m_catalog.songs[0] = makeSong(0xA1, "Alpha", 60);
    m_catalog.lists = {media::MediaPlaylist(7, "Set", {m_catalog.songs[0], m_catalog.songs[1]})};
    engine();
    load(1, 0xA1);
    send(mixerAction(2, params("crossfaderPosition", Value(0.0))));
    send(mixerAction(6));
    send(deckAction(1, 0));

    m_loop.advance(51.9);
    EXPECT_TRUE(songID(2).isNull());
    m_loop.advance(0.1 + 1e-9);
    EXPECT_EQ(songID(2), Value("B2")) << "loaded 8 s before the end";
    EXPECT_TRUE(status(2)["playing"].boolValue());
    m_loop.advance(4);
    const double halfway = m_sink.last("mixerStatus")["crossfaderPosition"].doubleValue();
    EXPECT_GT(halfway, 0);
    EXPECT_LT(halfway, 1);
    m_loop.advance(4);
    EXPECT_EQ(m_sink.last("mixerStatus")["crossfaderPosition"].doubleValue(), 1);
    EXPECT_FALSE(status(1)["playing"].boolValue()) << "the song faded out stops";
    EXPECT_EQ(m_sink.last("turntableSongInfo0")["currentSong"]["songID"], Value("B2")) << "the glance follows";
    EXPECT_TRUE(m_notifications.empty());

    // Bravo is the last song: nothing follows, and when it ends the user is asked to load.
    m_loop.advance(200);
    EXPECT_FALSE(status(2)["playing"].boolValue());
    EXPECT_EQ(status(2)["currentTime"].integerValue(), 180);
    ASSERT_EQ(m_notifications.size(), 1u);
    EXPECT_EQ(m_notifications[0].actions.at(0).identifier, "VXTUserNotificationActionLoad");
    EXPECT_EQ(m_notifications[0].userInfo["turntable"].integerValue(), 2);
}

TEST_F(EngineActionTest, WithAutomixOffTheUserIsOfferedItAndTheDeckStopsAtTheEnd) {
    engine();
    load(1, 0xB2);
    send(deckAction(1, 0));
    m_loop.advance(171.9);
    EXPECT_TRUE(m_notifications.empty());
    m_loop.advance(0.1 + 1e-9);
    ASSERT_EQ(m_notifications.size(), 1u);
    EXPECT_EQ(m_notifications[0].actions.at(0).identifier, "VXTUserNotificationActionAutomix");
    m_loop.advance(8);
    EXPECT_FALSE(status(1)["playing"].boolValue());
    EXPECT_EQ(status(1)["currentDisplayTime"], Value("3:00"));
    ASSERT_EQ(m_notifications.size(), 2u);
    EXPECT_EQ(m_notifications[1].userInfo["turntable"].integerValue(), 1);
    // Play at the end does nothing; skipping back makes room to play again.
    send(deckAction(1, 0));
    EXPECT_FALSE(status(1)["playing"].boolValue());
    send(deckAction(1, 3));
    send(deckAction(1, 0));
    EXPECT_TRUE(status(1)["playing"].boolValue());
}

TEST_F(EngineActionTest, SyncMakesTheOtherDeckFollowTheTempoHeard) {
    engine();
    load(1, 0xA1);
    load(2, 0xB2);
    send(deckAction(1, 0));
    send(mixerAction(0));
    EXPECT_EQ(status(2)["bpm"].integerValue(), 120);
    EXPECT_EQ(status(1)["bpm"].integerValue(), 120);
    send(deckAction(2, 0));
    m_loop.advance(10);
    send(deckAction(2, 16));
    EXPECT_EQ(status(2)["currentTime"].integerValue(), 12) << "100 BPM played at 120 runs 1.2 times as fast";
    send(mixerAction(0));
    EXPECT_EQ(status(2)["bpm"].integerValue(), 100);
}

TEST_F(EngineActionTest, NextAndPreviousFollowTheListThatHoldsTheSong) {
    // Library order X, Y, Z, W; P1 = Y X Z; P2 = X Y. W is in no playlist.
    m_catalog.songs = {makeSong(1, "W", 100), makeSong(2, "X", 100), makeSong(3, "Y", 100), makeSong(4, "Z", 100)};
    const auto& s = m_catalog.songs;
    m_catalog.lists = {media::MediaPlaylist(10, "P1", {s[2], s[1], s[3]}),
                       media::MediaPlaylist(11, "P2", {s[1], s[2]})};
    const struct {
        std::optional<std::size_t> openPlaylist;
        media::PersistentID loaded;
        int code;
        const char* expected;
    } rows[] = {
        {std::nullopt, 2, 4, "4"}, // first playlist holding X
        {std::nullopt, 2, 5, "3"},
        {1, 2, 4, "3"},            // the browser is in P2, which holds X
        {1, 4, 4, "4"},            // P2 does not hold Z: P1, where Z is last
        {std::nullopt, 1, 4, "2"}, // W: the library's order
        {0, 1, 5, "1"},            // before the first song: stays
    };
    for (const auto& row : rows) {
        m_engine.reset();
        engine();
        if (row.openPlaylist) {
            ASSERT_TRUE(m_engine->openLibraryEntry(*row.openPlaylist));
        }
        load(1, row.loaded);
        send(deckAction(1, row.code));
        EXPECT_EQ(songID(1), Value(row.expected)) << row.loaded << " action " << row.code;
    }
}

TEST_F(EngineActionTest, WritesOfOneMessageAreCoalescedPerLoopTurn) {
    engine();
    m_sink.writes.clear();
    for (int step = 0; step <= 100; ++step)
        engine().handleParentApplicationDictionary(mixerAction(1, params("volume", Value(step / 100.0))));
    engine().handleParentApplicationDictionary(deckAction(1, 16));
    engine().handleParentApplicationDictionary(deckAction(1, 16));
    m_loop.runUntilIdle();
    ASSERT_EQ(m_sink.of("mixerStatus").size(), 1u);
    EXPECT_EQ(m_sink.last("mixerStatus")["volume"].doubleValue(), 1);
    EXPECT_EQ(m_sink.of("turntableStatus1").size(), 1u);
    EXPECT_EQ(m_sink.writes.size(), 2u);
}

TEST_F(EngineActionTest, BadInputChangesNothingAndWritesNothing) {
    engine();
    load(1, 0xA1);
    const Value before = status(1);
    const std::vector<Value> rows = {
        Value(Dictionary{{"identifier", Value("queueAction")}, {"contents", Value(Dictionary{})}}),
        Value(Dictionary{{"identifier", Value("turntableAction")}, {"contents", Value("play")}}),
        Value(Dictionary{{"identifier", Value("turntableAction")}}),
        Value(Dictionary{{"identifier", Value(3)}}),
        deckAction(3, 0),
        deckAction(-1, 0),
        deckAction(0, 0),
        deckAction(0, 16),
        deckAction(3, 17),
        deckAction(1, 7),
        deckAction(1, 99),
        deckAction(1, -1),
        envelope("turntableAction", {{"turntable", Value("1")}, {"action", Value(0)}}),
        envelope("turntableAction", {{"turntable", Value(1)}, {"action", Value(true)}}),
        envelope("turntableAction", {{"turntable", Value(1.5)}, {"action", Value(0)}}),
        envelope("turntableAction", {{"turntable", Value(UINT64_MAX)}, {"action", Value(0)}}),
        mixerAction(12),
        mixerAction(1),
        mixerAction(1, params("volume", Value("0.5"))),
        mixerAction(1, params("volume", Value(std::nan("")))),
        mixerAction(2, params("crossfaderPosition", Value(true))),
        mixerAction(10, params("transitionType", Value("Nope"))),
        mixerAction(10, params("transitionType", Value(1))),
        mixerAction(10),
        envelope("mixerAction", {{"action", Value("1")}}),
    };
    for (std::size_t index = 0; index < rows.size(); ++index) {
        m_sink.writes.clear();
        send(rows[index]);
        EXPECT_TRUE(m_sink.writes.empty()) << "row " << index;
    }
    // Loads of what cannot be played leave the deck as it was (the status is still answered).
    m_catalog.songs.push_back(makeSong(0xDEAD, "Gone", 100, 120, "", true));
    for (const Value& itemID : {Value("FFFF"), Value("xyz"), Value(""), Value("0"), Value("0xA1"), Value(" A1"),
                                Value("11111111111111111"), Value(0xA1), Value("DEAD")}) {
        send(deckAction(1, 6, params("itemID", itemID)));
        EXPECT_EQ(engine().deck(1).song()->item.persistentID(), 0xA1u) << itemID.stringValue().value_or("?");
    }
    send(deckAction(1, 6));
    send(deckAction(1, 6, Value("A1")));
    EXPECT_EQ(status(1), before);
    EXPECT_TRUE(engine().handleParentApplicationDictionary(Value(Dictionary{{"identifier", Value("x")}})));
    EXPECT_FALSE(engine().handleParentApplicationDictionary(Value(Dictionary{}))) << "a wake-up is no action";
    EXPECT_FALSE(engine().handleParentApplicationDictionary(Value("turntableAction")));
    // Lower-case identifiers are read too.
    send(deckAction(1, 6, params("itemID", Value("b2"))));
    EXPECT_EQ(songID(1), Value("B2"));
}

TEST_F(EngineActionTest, TheGlanceReportsTheDeckTheAudienceHears) {
    engine();
    load(1, 0xA1);
    load(2, 0xB2);
    const auto glance = [&] {
        send(deckAction(0, 17));
        return m_sink.last("turntableSongInfo0")["currentSong"]["songID"];
    };
    EXPECT_EQ(glance(), Value("A1")) << "nothing played yet: the first deck with a song";
    send(deckAction(2, 0));
    EXPECT_EQ(glance(), Value("B2")) << "the only deck playing";
    m_loop.advance(1);
    send(deckAction(1, 0));
    EXPECT_EQ(glance(), Value("A1")) << "both play, crossfader in the middle: the one started last";
    send(mixerAction(2, params("crossfaderPosition", Value(0.6))));
    EXPECT_EQ(glance(), Value("B2")) << "nearer deck 2's side";
    send(deckAction(2, 1));
    send(deckAction(1, 1));
    EXPECT_EQ(glance(), Value("A1")) << "none plays: the one played last";
}
