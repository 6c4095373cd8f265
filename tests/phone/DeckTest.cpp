#include "phone/Deck.h"

#include <cmath>

#include <gtest/gtest.h>

#include "EngineTestFixture.h"
#include "phone/PersistentIDText.h"

using namespace vexo::phone;

TEST(DeckTest, DisplayTimeIsMinutesAndSecondsThenHours) {
    const std::pair<double, const char*> rows[] = {
        {0, "0:00"},     {0.99, "0:00"},    {59.5, "0:59"},      {60, "1:00"}, {605, "10:05"},
        {3599, "59:59"}, {3600, "1:00:00"}, {36125, "10:02:05"}, {-3, "0:00"}, {std::nan(""), "0:00"},
    };
    for (const auto& [seconds, text] : rows)
        EXPECT_EQ(Deck::displayTime(seconds), text) << seconds;
}

TEST(DeckTest, SkippingStaysInTheSongAndMovesTheLoopAlong) {
    Deck deck(1);
    deck.load({vexo::phone::testing::makeSong(1, "A", 30), 30, 120, ""}, 0);
    const std::pair<double, double> rows[] = {{-10, 0}, {10, 10}, {10, 20}, {10, 30}, {10, 30}, {-25, 5}};
    for (const auto& [step, expected] : rows) {
        deck.skip(step, 0);
        EXPECT_EQ(deck.position(0), expected) << step;
    }
    // A loop of 4 beats (2 s) from 5 s moves with a skip, and never past the song's end.
    ASSERT_TRUE(deck.toggleLooping(0));
    deck.skip(10, 0);
    ASSERT_TRUE(deck.play(0));
    EXPECT_EQ(deck.position(3), 16);
    deck.skip(100, 3);
    EXPECT_GE(deck.position(3), 28);
    EXPECT_LE(deck.position(10), 30);
    EXPECT_FALSE(deck.update(100)) << "a looping deck never ends";
    EXPECT_FALSE(deck.secondsToEnd(100).has_value());
}

TEST(DeckTest, APlayingDeckStopsAtItsEndAndAnEmptyDeckDoesNothing) {
    Deck empty(2);
    EXPECT_FALSE(empty.play(0));
    EXPECT_FALSE(empty.toggleLooping(0));
    EXPECT_EQ(empty.status(0)["currentDisplayTime"], vexo::plist::Value(""));
    EXPECT_EQ(empty.songInfo().count(), 0u);

    Deck deck(1);
    deck.load({vexo::phone::testing::makeSong(1, "A", 30), 30, 0, ""}, 0);
    ASSERT_TRUE(deck.play(10));
    deck.setRate(2, 15);
    EXPECT_EQ(*deck.secondsToEnd(15), 12.5) << "25 s of song left at twice the speed";
    EXPECT_FALSE(deck.update(27.4));
    EXPECT_TRUE(deck.update(27.5));
    EXPECT_FALSE(deck.isPlaying());
    EXPECT_EQ(deck.position(1000), 30);
    EXPECT_EQ(deck.effectiveBeatsPerMinute(), 0) << "no tempo tag reads 0 at any rate";
}

TEST(DeckTest, IdentifiersReadOnlyTheLinksHexadecimalForm) {
    EXPECT_EQ(persistentIDText(0xAB12), "AB12");
    EXPECT_EQ(persistentIDText(UINT64_MAX), "FFFFFFFFFFFFFFFF");
    const std::pair<const char*, std::optional<vexo::media::PersistentID>> rows[] = {
        {"AB12", 0xAB12},
        {"ab12", 0xAB12},
        {"FFFFFFFFFFFFFFFF", UINT64_MAX},
        {"0", std::nullopt},
        {"", std::nullopt},
        {"0x1", std::nullopt},
        {"-1", std::nullopt},
        {"1G", std::nullopt},
        {" 1", std::nullopt},
        {"10000000000000000", std::nullopt},
    };
    for (const auto& [text, expected] : rows)
        EXPECT_EQ(persistentIDFromText(text), expected) << text;
}
