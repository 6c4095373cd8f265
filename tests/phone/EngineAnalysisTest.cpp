#include <cmath>

#include "EngineTestFixture.h"
#include "audio/AudioEngine.h"

using namespace vexo;
using namespace vexo::phone;
using namespace vexo::phone::testing;

namespace {

media::ItemAnalysis analysed(double bpm, double firstBeat, std::string key, double loudness, double truePeak) {
    media::ItemAnalysis analysis;
    analysis.version = 1;
    analysis.beatsPerMinute = bpm;
    analysis.firstBeatSeconds = firstBeat;
    analysis.key = std::move(key);
    analysis.loudnessLUFS = loudness;
    analysis.truePeakDBTP = truePeak;
    return analysis;
}

media::MediaItem withAnalysis(const media::MediaItem& item, const media::ItemAnalysis& analysis) {
    media::MediaItem::Properties properties;
    properties.persistentID = item.persistentID();
    properties.title = item.title();
    properties.playbackDuration = item.playbackDuration();
    properties.assetURL = item.assetURL();
    properties.beatsPerMinute = item.beatsPerMinute();
    properties.initialKey = item.initialKey();
    properties.analysis = analysis;
    return media::MediaItem(properties);
}

class EngineAnalysisTest : public EngineTest {
protected:
    void SetUp() override {
        m_catalog.songs = {
            withAnalysis(makeSong(0xA1, "Tagged", 240, 124, "Am"), analysed(123.6, 0.5, "8A", -8, -0.5)),
            withAnalysis(makeSong(0xB2, "Untagged", 180, 0, ""), analysed(87.4, 1.25, "4B", -20, -6)),
            makeSong(0xC3, "Unanalysed", 200, 0, ""),
        };
        m_catalog.lists = {media::MediaPlaylist(7, "Set", m_catalog.songs)};
    }
};

} // namespace

TEST_F(EngineAnalysisTest, TheWatchGetsTheTagsFirstElseTheAnalysisInCamelotNotation) {
    struct Row {
        media::PersistentID id;
        media::ValuePreference preference;
        std::int64_t bpm;
        const char* key;
    };
    using enum media::ValuePreference;
    const Row rows[] = {
        {0xA1, Tags, 124, "8A"}, {0xA1, Analysis, 124, "8A"}, // 123.6 rounds to 124 on the wire
        {0xB2, Tags, 87, "4B"},  {0xB2, Analysis, 87, "4B"},  {0xC3, Tags, 0, ""}, {0xC3, Analysis, 0, ""},
    };
    for (const Row& row : rows) {
        engine().setValuePreference(row.preference);
        load(1, row.id);
        EXPECT_EQ(status(1)["bpm"].integerValue(), row.bpm) << std::hex << row.id;
        EXPECT_EQ(status(1)["key"].stringValue(), row.key) << std::hex << row.id;
    }
}

TEST_F(EngineAnalysisTest, LoopsStartOnTheAnalysedGrid) {
    engine();
    load(1, 0xB2);
    send(deckAction(1, 0));
    m_loop.advance(10);
    send(deckAction(1, 10));
    // Four beats at 87.4 BPM from the first beat at 1.25 s: beats at 1.25 + n * 0.6865 s; the
    // one at or before 10 s is the 12th after it (9.49 s).
    const auto& deck = engine().deck(1);
    ASSERT_TRUE(deck.isLooping());
    EXPECT_NEAR(deck.loopStart(), 1.25 + 12 * 60 / 87.4, 1e-6);
}

TEST(SoundLinkTest, AutoGainBringsSongsToTheTargetWithinItsBounds) {
    sound::AudioEngine audio(48000);
    SoundLink link(audio);
    struct Row {
        std::optional<double> target;
        std::optional<double> loudness;
        std::optional<double> truePeak;
        double decibels;
    };
    const Row rows[] = {
        {-18, -8, -0.5, -10},                                    // loud: cut to the target
        {-18, -40, -20, 6},                                      // quiet: boosted by 6 dB at most
        {-18, -21, -1.5, 1.5},                                   // a boost stops at the true peak
        {-18, -50, std::nullopt, 6}, {-18, std::nullopt, -3, 0}, // not measured: as it is
        {std::nullopt, -8, -0.5, 0},                             // switched off
        {-14, -8, -0.5, -6},
    };
    for (const Row& row : rows) {
        link.setAutoGainTarget(row.target);
        Deck::Song song;
        song.loudnessLUFS = row.loudness;
        song.truePeakDBTP = row.truePeak;
        EXPECT_NEAR(20 * std::log10(link.autoGainOf(song)), row.decibels, 1e-9)
            << row.loudness.value_or(0) << " LUFS, target " << row.target.value_or(0);
    }
}
