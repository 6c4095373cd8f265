#include "audio/AudioEngine.h"

#include <cmath>
#include <span>
#include <string>

#include <gtest/gtest.h>

#include "audio/CrossfaderCurve.h"
#include "audio/DeckPlayer.h"
#include "audio/OfflineRenderer.h"
#include "audio/SignalMeasure.h"
#include "audio/Track.h"
#include "platform/audio/AudioFixture.h"
#include "support/TemporaryDirectory.h"

namespace vexo::sound {
namespace {

using audio::testing::ToneRecipe;
using namespace sound::testing;

constexpr int kRate = 48000;

// Two decks with a steady tone each: 440 Hz on deck 1, 660 Hz on deck 2, both playing, the
// volume at full and the crossfader in the middle.
class AudioEngineTest : public ::testing::Test {
protected:
    void SetUp() override {
        loadTone(1, 440);
        loadTone(2, 660);
        m_engine.setVolume(1);
        m_engine.play(1);
        m_engine.play(2);
    }

    void loadTone(int deck, double frequency, double seconds = 12) {
        const auto path = m_folder.path() / ("tone" + std::to_string(deck) + ".wav");
        ASSERT_TRUE(audio::testing::writeToneFile(path, ToneRecipe{kRate, seconds, frequency, 0.5, 0}));
        std::shared_ptr<Track> track = Track::open(path, kRate).valueOr(nullptr);
        ASSERT_TRUE(track);
        m_engine.load(deck, track, BeatGrid{120, 0});
    }

    // The amplitude of each deck's tone over the next `seconds` of the mix (left channel).
    std::pair<double, double> toneLevels(double seconds = 0.2) {
        const std::vector<float> mix = m_renderer.renderSeconds(seconds);
        const std::vector<float> left = channel(mix, 0);
        return {toneAmplitude(left, 440, kRate), toneAmplitude(left, 660, kRate)};
    }

    vexo::testing::TemporaryDirectory m_folder;
    AudioEngine m_engine{kRate, 512};
    OfflineRenderer m_renderer{m_engine, 512};
};

TEST_F(AudioEngineTest, TheCrossfaderKeepsConstantPowerAlongItsTravel) {
    for (const double position : {0.0, 0.1, 0.25, 0.5, 0.75, 0.9, 1.0}) {
        m_engine.setCrossfader(position);
        (void)m_renderer.renderSeconds(0.05); // the gains settle
        const auto [deck1, deck2] = toneLevels();
        const DeckGains expected = crossfaderGains(position);
        EXPECT_NEAR(deck1, 0.5 * expected.deck1, 0.005) << position;
        EXPECT_NEAR(deck2, 0.5 * expected.deck2, 0.005) << position;
        EXPECT_NEAR((deck1 * deck1 + deck2 * deck2) / 0.25, 1.0, 1e-2) << position;
        EXPECT_NEAR(expected.deck1 * expected.deck1 + expected.deck2 * expected.deck2, 1.0, 1e-3) << position;
    }
}

TEST_F(AudioEngineTest, VolumeScalesTheMixUnderTheLimiter) {
    m_engine.setCrossfader(0);
    for (const double volume : {1.0, 0.8, 0.5, 0.1, 0.0}) {
        m_engine.setVolume(volume);
        (void)m_renderer.renderSeconds(0.05);
        EXPECT_NEAR(toneLevels().first, 0.5 * volume, 0.005) << volume;
    }
}

TEST_F(AudioEngineTest, ASongsGainScalesOnlyItsDeck) {
    m_engine.setCrossfader(0.5);
    const auto [before1, before2] = toneLevels();
    std::shared_ptr<Track> track = Track::open(m_folder.path() / "tone1.wav", kRate).valueOr(nullptr);
    ASSERT_TRUE(track);
    m_engine.load(1, track, BeatGrid{120, 0}, 0.25);
    m_engine.play(1);
    (void)m_renderer.renderSeconds(0.05);
    const auto [after1, after2] = toneLevels();
    EXPECT_NEAR(after1, 0.25 * before1, 0.005);
    EXPECT_NEAR(after2, before2, 0.005);
}

TEST_F(AudioEngineTest, TransitionsReachTheirTargetAtTheirDuration) {
    struct Row {
        TransitionKind kind;
        // Where the crossfader stands halfway, roughly.
        double halfway;
        double tolerance;
    };
    const Row rows[] = {
        {TransitionKind::Crossfade, 0.5, 0.02},
        {TransitionKind::Smooth, 0.5, 0.02},
        {TransitionKind::EchoOut, 0.75, 0.02},
        {TransitionKind::Cut, 0.0, 0.001},
    };
    for (const Row& row : rows) {
        m_engine.setCrossfader(0);
        (void)m_renderer.renderSeconds(0.1);
        m_engine.startTransition(1, 2, row.kind);
        (void)m_renderer.renderSeconds(1);
        EXPECT_NEAR(m_engine.crossfader(), row.halfway, row.tolerance)
            << kTransitionNames[static_cast<std::size_t>(row.kind)];
        EXPECT_TRUE(m_engine.isTransitioning());
        // A buffer's worth past the duration, it stands at its target and has ended.
        (void)m_renderer.renderSeconds(1.0 + 512.0 / kRate);
        EXPECT_EQ(m_engine.crossfader(), 1.0);
        EXPECT_FALSE(m_engine.isTransitioning());
        const auto [deck1, deck2] = toneLevels(0.1);
        // Echo Out leaves deck 1's echoes ringing on for a while.
        if (row.kind != TransitionKind::EchoOut) {
            EXPECT_LT(deck1, 0.02) << "deck 1 is gone";
            EXPECT_NEAR(deck2, 0.5, 0.01);
        }
    }
}

TEST_F(AudioEngineTest, ACutSwitchesOnABeatOfTheDeckGoingOut) {
    m_engine.setCrossfader(0);
    (void)m_renderer.renderSeconds(0.3); // deck 1 stands 0.3 s into its beat of 0.5 s
    const std::size_t start = m_renderer.framesRendered();
    m_engine.startTransition(1, 1.8, TransitionKind::Cut);
    const std::vector<float> mix = m_renderer.renderSeconds(2);
    // Beats of deck 1 fall at 0.5, 1.0, 1.5 and 2.0 s of its song: 0.2, 0.7, 1.2 and 1.7 s into
    // the transition; the last one before its 1.8 s are up is at 2.0 s of the song. The mixer
    // works in buffers of 512 frames, so the switch lands within one of the beat.
    const double cutAt = 2.0 * kRate - static_cast<double>(start);
    const std::vector<float> left = channel(mix, 0);
    EXPECT_GT(toneAmplitude(std::span(left).subspan(static_cast<std::size_t>(cutAt) - 4800, 4800), 440, kRate), 0.45);
    EXPECT_LT(toneAmplitude(std::span(left).subspan(static_cast<std::size_t>(cutAt) + 1200, 4800), 440, kRate), 0.01);
}

TEST_F(AudioEngineTest, DecksReportTheFramesPlayedAndStopAtTheirEnd) {
    (void)m_renderer.render(48000);
    EXPECT_EQ(m_engine.deckStatus(1).position, 48000);
    m_engine.pause(2);
    const AudioEngine::Sequence seek = m_engine.seek(1, 12 * kRate - 1000);
    EXPECT_LT(m_engine.appliedSequence(), seek);
    (void)m_renderer.render(4096);
    EXPECT_GE(m_engine.appliedSequence(), seek);
    const AudioEngine::DeckStatus ended = m_engine.deckStatus(1);
    EXPECT_TRUE(ended.ended);
    EXPECT_FALSE(ended.playing);
    EXPECT_EQ(ended.position, 12 * kRate);
    EXPECT_NEAR(m_engine.deckStatus(2).position, 48000, DeckPlayer::kJoinFrames)
        << "a paused deck holds its place after its fade-out";
}

TEST_F(AudioEngineTest, EveryEffectAndFilterStaysFiniteAndUnderFullScale) {
    m_engine.setCrossfader(0.5);
    for (std::size_t kind = 0; kind < kEffectKindCount; ++kind) {
        for (const int deck : {1, 2}) {
            m_engine.selectEffect(deck, static_cast<EffectKind>(kind));
            m_engine.setEffectEnabled(deck, true);
            m_engine.setLowPassEnabled(deck, kind % 2 == 0);
            m_engine.setHighPassEnabled(deck, kind % 3 == 0);
        }
        const std::vector<float> mix = m_renderer.renderSeconds(1);
        EXPECT_TRUE(allNormal(mix)) << kEffectNames[kind];
        EXPECT_LE(peak(mix), 1.0) << kEffectNames[kind];
    }
}

TEST_F(AudioEngineTest, ADeckStartsOnTheBeatOfAnother) {
    m_engine.pause(2);
    m_engine.seek(2, 0);
    (void)m_renderer.renderSeconds(0.3);
    m_engine.playOnBeatOf(2, 1);
    (void)m_renderer.render(512);
    EXPECT_TRUE(m_engine.deckStatus(2).playing) << "waiting for the beat counts as playing";
    EXPECT_EQ(m_engine.deckStatus(2).position, 0);
    (void)m_renderer.renderSeconds(0.5);
    // Deck 1's beat came at 0.5 s of its song; deck 2 has played from there on.
    EXPECT_EQ(m_engine.deckStatus(2).position, m_engine.deckStatus(1).position - kRate / 2);
}

} // namespace
} // namespace vexo::sound
