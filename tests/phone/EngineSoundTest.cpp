// The engine played as sound: the watch's actions in, the mix rendered offline out, with the
// loop's virtual time advanced buffer by buffer beside the rendering.
#include <algorithm>
#include <cmath>
#include <fstream>
#include <numeric>
#include <span>

#include "EngineTestFixture.h"
#include "audio/CrossfaderCurve.h"
#include "audio/OfflineRenderer.h"
#include "audio/SignalMeasure.h"
#include "phone/SoundLink.h"
#include "platform/audio/AudioFixture.h"
#include "platform/media/FileURL.h"
#include "support/TemporaryDirectory.h"

namespace vexo::phone::testing {
namespace {

using audio::testing::ToneRecipe;
using namespace sound::testing;

constexpr int kRate = 48000;
constexpr std::size_t kBuffer = 512;

class EngineSoundTest : public EngineTest {
protected:
    void SetUp() override { m_sound = &m_link; }

    // A song at `file` in the catalogue, written from `tone` unless the file is made otherwise.
    void addSong(media::PersistentID id, const std::string& file, std::int64_t bpm, std::optional<ToneRecipe> tone) {
        const auto path = m_folder.path() / file;
        if (tone) {
            ASSERT_TRUE(audio::testing::writeToneFile(path, *tone));
        }
        media::MediaItem::Properties properties;
        properties.persistentID = id;
        properties.title = file;
        properties.artist = "Tones";
        properties.playbackDuration = 600; // the tags' length: the decoded one wins
        properties.assetURL = media::FileURL::fromPath(path);
        properties.beatsPerMinute = bpm;
        m_catalog.songs.emplace_back(properties, std::nullopt);
    }

    // Renders `seconds` of the mix while the loop's clock moves along with it.
    std::vector<float> play(double seconds) {
        std::vector<float> mix;
        const auto buffers = static_cast<std::size_t>(std::llround(seconds * kRate / kBuffer));
        for (std::size_t i = 0; i < buffers; ++i) {
            const std::vector<float> buffer = m_renderer.render(kBuffer);
            mix.insert(mix.end(), buffer.begin(), buffer.end());
            m_loop.advance(static_cast<double>(kBuffer) / kRate);
        }
        return mix;
    }

    // Frames at which the `frequency` component of the left channel rises above half of
    // `amplitude`: where a click track's clicks start.
    static std::vector<double> clickOnsets(std::span<const float> mix, double frequency, double amplitude) {
        const std::vector<float> left = channel(mix, 0);
        std::vector<double> found;
        bool above = false;
        constexpr std::size_t kWindow = 96;
        for (std::size_t start = 0; start + kWindow <= left.size(); start += 24) {
            const double level = toneAmplitude(std::span(left).subspan(start, kWindow), frequency, kRate);
            if (!above && level > amplitude / 2) {
                found.push_back(static_cast<double>(start));
                above = true;
            } else if (above && level < amplitude / 4) {
                above = false;
            }
        }
        return found;
    }

    vexo::testing::TemporaryDirectory m_folder;
    sound::AudioEngine m_audio{kRate, kBuffer};
    SoundLink m_link{m_audio};
    sound::OfflineRenderer m_renderer{m_audio, kBuffer};
};

TEST_F(EngineSoundTest, TheClockTheWatchSeesIsTheFramesPlayed) {
    addSong(1, "tone.flac", 120, ToneRecipe{22050, 7.5, 440, 0.5, 0});
    load(1, 1);
    EXPECT_EQ(m_sink.last("turntableSongInfo1")["currentSong"]["duration"].integerValue(), 7)
        << "the decoded length, not the tags' 600 s";
    send(mixerAction(2, plist::Value(plist::Dictionary{{"crossfaderPosition", plist::Value(0.0)}})));
    send(deckAction(1, 0));
    const std::vector<float> mix = play(3.2);
    send(deckAction(1, 16));
    EXPECT_EQ(status(1)["currentTime"].integerValue(), 3);
    EXPECT_EQ(status(1)["currentDisplayTime"], plist::Value("0:03"));
    EXPECT_NEAR(dominantFrequency(channel(mix, 0, kRate, kRate), kRate, 300, 600), 440, 2)
        << "resampled from 22050 Hz without a change of pitch";
    // The song ends where its frames end, and the deck stops there.
    (void)play(5);
    EXPECT_FALSE(status(1)["playing"].boolValue());
    EXPECT_EQ(status(1)["currentDisplayTime"], plist::Value("0:07"));
    EXPECT_NEAR(static_cast<double>(m_audio.deckStatus(1).position), 7.5 * kRate, 48);
}

TEST_F(EngineSoundTest, ASongThatCannotPlayLeavesTheDeckAsItWas) {
    addSong(1, "good.wav", 120, ToneRecipe{kRate, 4, 440, 0.5, 0});
    addSong(2, "missing.wav", 120, std::nullopt);
    addSong(3, "garbage.mp3", 120, std::nullopt);
    addSong(4, "truncated.flac", 120, std::nullopt);
    std::ofstream(m_folder.path() / "garbage.mp3") << std::string(4096, 'x');
    {
        ASSERT_TRUE(audio::testing::writeToneFile(m_folder.path() / "whole.flac", ToneRecipe{kRate, 4, 440, 0.5, 0}));
        std::ifstream whole(m_folder.path() / "whole.flac", std::ios::binary);
        std::string bytes((std::istreambuf_iterator<char>(whole)), std::istreambuf_iterator<char>());
        std::ofstream(m_folder.path() / "truncated.flac", std::ios::binary) << bytes.substr(0, 30);
    }
    load(1, 1);
    send(deckAction(1, 0));
    (void)play(1);
    for (const media::PersistentID bad : {2, 3, 4}) {
        load(1, bad);
        EXPECT_EQ(songID(1), plist::Value("1")) << bad;
        EXPECT_TRUE(status(1)["playing"].boolValue()) << bad;
        EXPECT_NE(status(1)[Engine::kLoadErrorKey].stringValue().value_or("").find("cannot load"), std::string::npos)
            << bad;
    }
    const std::vector<float> mix = play(1);
    EXPECT_GT(rms(channel(mix, 0)), 0.1) << "the song goes on playing";
    load(1, 1);
    EXPECT_TRUE(status(1)[Engine::kLoadErrorKey].isNull()) << "a good load clears the reason";
}

TEST_F(EngineSoundTest, TheAutoLoopHoldsItsBeatsToTheSampleWithoutAClick) {
    addSong(1, "tone.wav", 125, ToneRecipe{kRate, 20, 220, 0.5, 0});
    load(1, 1);
    send(deckAction(1, 0));
    (void)play(1.3);
    send(deckAction(1, 10));
    ASSERT_TRUE(status(1)["looping"].boolValue());
    const std::vector<float> mix = play(6);
    // 4 beats at 125 BPM: 1.92 s, 92160 frames, from the beat at or before 1.3 s (0.96 s).
    const std::int64_t length = 92160;
    const std::vector<float> left = channel(mix, 0);
    const std::size_t second = 2 * kRate;
    for (std::size_t offset : {0, 1000, 30000})
        EXPECT_NEAR(left[second + offset], left[second + offset + length], 2e-3) << offset;
    EXPECT_LT(largestStep(left), 1.5 * 2 * std::numbers::pi * 220 / kRate * 0.5 * 0.71 + 1e-3)
        << "no step beyond the tone's own slope";
    const std::int64_t position = m_audio.deckStatus(1).position;
    EXPECT_GE(position, static_cast<std::int64_t>(0.96 * kRate));
    EXPECT_LT(position, static_cast<std::int64_t>(0.96 * kRate) + length);
}

TEST_F(EngineSoundTest, SyncMatchesTempoAndBeatsAndKeylockKeepsThePitch) {
    addSong(1, "clicks120.wav", 120, ToneRecipe{kRate, 30, 1000, 0.5, 120});
    addSong(2, "clicks126.wav", 126, ToneRecipe{kRate, 30, 3000, 0.5, 126});
    load(1, 1);
    load(2, 2);
    // Deck 1 is heard (the crossfader on its side), so deck 2 follows it.
    send(mixerAction(2, plist::Value(plist::Dictionary{{"crossfaderPosition", plist::Value(0.25)}})));
    send(deckAction(1, 0));
    (void)play(0.77);
    send(deckAction(2, 0));
    (void)play(1.1);
    send(mixerAction(0));
    (void)play(1);
    const std::vector<float> mix = play(8);

    const sound::DeckGains gains = sound::crossfaderGains(0.25);
    const std::vector<double> one = clickOnsets(mix, 1000, 0.5 * 0.8 * gains.deck1);
    const std::vector<double> two = clickOnsets(mix, 3000, 0.5 * 0.8 * gains.deck2);
    ASSERT_GE(one.size(), 12u);
    ASSERT_GE(two.size(), 12u);
    const auto interval = [](const std::vector<double>& onsets) {
        return (onsets.back() - onsets.front()) / static_cast<double>(onsets.size() - 1);
    };
    EXPECT_NEAR(interval(two) / interval(one), 1.0, 1e-3) << "the same tempo heard";
    for (const double beat : two) {
        const auto nearest = *std::min_element(
            one.begin(), one.end(), [&](double a, double b) { return std::fabs(a - beat) < std::fabs(b - beat); });
        EXPECT_LT(std::fabs(nearest - beat), 0.005 * kRate) << "beats fall together";
    }
    EXPECT_EQ(status(2)["bpm"].integerValue(), 120);
    // Keylock: deck 2 plays 5 % slower and its clicks keep their 3 kHz.
    ASSERT_GT(two.size(), 3u);
    EXPECT_NEAR(dominantFrequency(channel(mix, 0, static_cast<std::size_t>(two[2]), 480), kRate, 2500, 3500, 10), 3000,
                30);
}

TEST_F(EngineSoundTest, KeylockHoldsThePitchWhileTheTempoMovesSixPercent) {
    addSong(1, "beat.wav", 120, ToneRecipe{kRate, 20, 880, 0.5, 120});
    addSong(2, "tone.wav", 113, ToneRecipe{kRate, 20, 440, 0.5, 0});
    load(1, 1);
    load(2, 2);
    send(mixerAction(2, plist::Value(plist::Dictionary{{"crossfaderPosition", plist::Value(0.25)}})));
    send(deckAction(1, 0));
    (void)play(0.5);
    send(deckAction(2, 0));
    send(mixerAction(0)); // deck 2 follows deck 1, heard
    (void)play(2);
    const double before = static_cast<double>(m_audio.deckStatus(2).position);
    const std::vector<float> mix = play(4);
    const double after = static_cast<double>(m_audio.deckStatus(2).position);
    EXPECT_NEAR((after - before) / (4 * kRate), 120.0 / 113, 2e-3) << "6 % faster";
    const std::vector<float> left = channel(mix, 0, kRate, kRate);
    EXPECT_NEAR(dominantFrequency(left, kRate, 350, 550), 440, 4.4);
}

} // namespace
} // namespace vexo::phone::testing
