#include "audio/DeckPlayer.h"

#include <gtest/gtest.h>

#include "audio/SignalMeasure.h"
#include "audio/Track.h"
#include "platform/audio/AudioFixture.h"
#include "platform/audio/Decoder.h"
#include "support/TemporaryDirectory.h"

namespace vexo::sound {
namespace {

using audio::testing::ToneRecipe;
using namespace sound::testing;
using namespace std::chrono_literals;

constexpr int kRate = 48000;
constexpr std::size_t kBlock = 512;

class DeckPlayerTest : public ::testing::Test {
protected:
    void SetUp() override {
        const auto path = m_folder.path() / "tone.wav";
        ASSERT_TRUE(audio::testing::writeToneFile(path, m_tone));
        m_track = Track::open(path, kRate).valueOr(nullptr);
        ASSERT_TRUE(m_track);
        ASSERT_TRUE(m_track->waitUntilReadable(0, 4 * kRate, 10s));
        m_player.load(m_track.get());
    }

    std::vector<float> render(std::size_t blocks) {
        std::vector<float> out(blocks * kBlock * 2);
        for (std::size_t block = 0; block < blocks; ++block)
            m_player.render(out.data() + block * kBlock * 2, kBlock);
        return out;
    }

    vexo::testing::TemporaryDirectory m_folder;
    ToneRecipe m_tone{kRate, 4, 220, 0.5, 0};
    std::shared_ptr<Track> m_track;
    DeckPlayer m_player{kRate, kBlock};
};

TEST_F(DeckPlayerTest, AtRateOneTheSongPlaysAsItIsAndStopsAtItsEnd) {
    std::vector<float> song(4 * kRate * 2);
    const std::unique_ptr<audio::Decoder> decoder = audio::Decoder::open(m_track->path(), kRate).valueOr(nullptr);
    ASSERT_TRUE(decoder);
    ASSERT_EQ(decoder->read(song.data(), 4 * kRate), static_cast<std::size_t>(4 * kRate));
    m_player.play();
    const std::vector<float> played = render(100);
    EXPECT_EQ(m_player.position(), 100 * static_cast<std::int64_t>(kBlock));
    // After the fade-in, every sample is the file's.
    for (std::size_t i = DeckPlayer::kJoinFrames * 2; i < played.size(); ++i)
        ASSERT_EQ(played[i], song[i]) << i / 2;
    (void)render(400);
    EXPECT_TRUE(m_player.hasEnded());
    EXPECT_FALSE(m_player.isPlaying());
    EXPECT_EQ(m_player.position(), 4 * kRate);
}

TEST_F(DeckPlayerTest, ALoopRepeatsToTheSampleAndJoinsWithoutAClick) {
    // 0.3 s: not a whole number of the tone's periods, so the join would click uncovered.
    const std::int64_t start = 12000;
    const std::int64_t length = 14400;
    m_player.seek(20000);
    m_player.play();
    m_player.setLoop(start, length);
    EXPECT_LT(m_player.position(), start + length) << "a play head past the loop wraps into it";
    const std::vector<float> played = render(200);
    const std::vector<float> left = channel(played, 0);
    for (const std::size_t at : {std::size_t{30000}, std::size_t{41111}})
        EXPECT_EQ(left[at], left[at + static_cast<std::size_t>(length)]) << at;
    const double slope = 2 * std::numbers::pi * 220 / kRate * 0.5;
    EXPECT_LT(largestStep(std::span(left).subspan(DeckPlayer::kJoinFrames)), 1.5 * slope);
    EXPECT_TRUE(m_player.isLooping());
    EXPECT_GE(m_player.position(), start);
    EXPECT_LT(m_player.position(), start + length);
}

} // namespace
} // namespace vexo::sound
