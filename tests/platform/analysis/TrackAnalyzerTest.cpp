#include "platform/analysis/TrackAnalyzer.h"

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/analysis/AnalysisCorpus.h"
#include "platform/audio/AudioFixture.h"
#include "platform/media/CamelotKey.h"
#include "support/TemporaryDirectory.h"

namespace vexo::analysis {
namespace {

using testing::BeatRecipe;
using testing::KeyRecipe;
using testing::Rhythm;

constexpr double kTempoTolerance = 0.5;
constexpr double kFirstBeatTolerance = 0.020;
constexpr double kLoudnessTolerance = 0.5;

struct TempoRow {
    double bpm;
    Rhythm rhythm;
    double swing;
    double firstBeat;
    bool chords;
};

void expectTempoAndFirstBeat(const std::vector<TempoRow>& rows) {
    for (const TempoRow& row : rows) {
        BeatRecipe recipe;
        recipe.beatsPerMinute = row.bpm;
        recipe.rhythm = row.rhythm;
        recipe.swing = row.swing;
        recipe.firstBeatSeconds = row.firstBeat;
        recipe.withChords = row.chords;
        recipe.seconds = 14;
        const std::vector<float> frames = testing::beatSong(recipe);
        const TrackAnalysis result = TrackAnalyzer::analyzeFrames(frames.data(), frames.size() / 2, recipe.sampleRate);
        SCOPED_TRACE(testing::rhythmName(row.rhythm) + " at " + std::to_string(row.bpm) + " BPM, swing " +
                     std::to_string(row.swing) + ", first beat " + std::to_string(row.firstBeat));
        ASSERT_TRUE(result.beatsPerMinute.has_value());
        EXPECT_NEAR(*result.beatsPerMinute, row.bpm, kTempoTolerance);
        ASSERT_TRUE(result.firstBeatSeconds.has_value());
        EXPECT_NEAR(*result.firstBeatSeconds, row.firstBeat, kFirstBeatTolerance);
    }
}

// Two tables, so that each runs in its own test process.
TEST(TrackAnalyzerTest, TempoAndFirstBeatFrom70To123Bpm) {
    using enum Rhythm;
    expectTempoAndFirstBeat({
        {70, Backbeat, 0.5, 0, false},
        {75, Clicks, 0.5, 0, false},
        {80, FourOnTheFloor, 0.5, 0.4, true},
        {87, Backbeat, 0.5, 0, false},
        {87, Clicks, 2.0 / 3, 1.1, false},
        {90, Backbeat, 2.0 / 3, 0, true},
        {95, FourOnTheFloor, 2.0 / 3, 0, false},
        {100, Clicks, 0.5, 2.5, false},
        {105, Backbeat, 0.5, 0.05, false},
        {110, FourOnTheFloor, 0.5, 0, true},
        {118, Breakbeat, 0.5, 0, false},
        {120, FourOnTheFloor, 0.5, 0, false},
        {123.5, FourOnTheFloor, 0.5, 0.77, false},
    });
}

TEST(TrackAnalyzerTest, TempoAndFirstBeatFrom123To180Bpm) {
    using enum Rhythm;
    expectTempoAndFirstBeat({
        {123.5, Backbeat, 2.0 / 3, 0, true},
        {126, Clicks, 2.0 / 3, 0, false},
        {128, FourOnTheFloor, 2.0 / 3, 3.3, false},
        {132, Backbeat, 0.5, 0, false},
        {140, Breakbeat, 0.5, 0.2, false},
        {145, FourOnTheFloor, 0.5, 0, true},
        {150, Clicks, 0.5, 0, false},
        {160, Backbeat, 2.0 / 3, 0, false},
        {170, Breakbeat, 0.5, 0, true},
        {174, Breakbeat, 0.5, 0.6, false},
        {174, FourOnTheFloor, 0.5, 0, false},
        {180, Clicks, 0.5, 0, false},
        {180, Backbeat, 0.5, 1.0, false},
    });
}

TEST(TrackAnalyzerTest, SlowTempoWithOffBeatsIsHalvedOnlyByStrongOnes) {
    // Off-beats a little softer than the bar that doubles a tempo: the tracker guesses double
    // at 70 and 71 BPM, single at 74, and the answer must not follow it.
    struct Row {
        double bpm;
        double offBeatGain;
        double expected;
    };
    for (const Row& row : std::vector<Row>{
             {70, 0.14, 70}, {70, 0.16, 70}, {71, 0.14, 71}, {74, 0.14, 74}, {70, 0.3, 140}, {74, 0.3, 148}}) {
        BeatRecipe recipe;
        recipe.beatsPerMinute = row.bpm;
        recipe.rhythm = Rhythm::Clicks;
        recipe.offBeatClickGain = row.offBeatGain;
        recipe.seconds = 14;
        const std::vector<float> frames = testing::beatSong(recipe);
        const TrackAnalysis result = TrackAnalyzer::analyzeFrames(frames.data(), frames.size() / 2, recipe.sampleRate);
        EXPECT_NEAR(result.beatsPerMinute.value_or(0), row.expected, kTempoTolerance)
            << row.bpm << " BPM, off-beats at " << row.offBeatGain;
    }
}

struct KeyRow {
    int pitchClass;
    bool minor;
    std::string expected;
};

// How many of `rows` come out in their key; chords that do not are failures.
int keysRight(const std::vector<KeyRow>& rows, bool melody) {
    int right = 0;
    for (const KeyRow& row : rows) {
        KeyRecipe recipe;
        recipe.pitchClass = row.pitchClass;
        recipe.minor = row.minor;
        recipe.melody = melody;
        recipe.seconds = 6;
        const std::vector<float> frames = testing::keySong(recipe);
        const TrackAnalysis result = TrackAnalyzer::analyzeFrames(frames.data(), frames.size() / 2, recipe.sampleRate);
        const std::string found = result.key.value_or("none");
        right += found == row.expected ? 1 : 0;
        if (found != row.expected && !melody)
            ADD_FAILURE() << "chords in " << row.expected << " found as " << found;
    }
    return right;
}

// The 24 keys in two tests, each in a process of its own.
TEST(TrackAnalyzerTest, KeyOfChordsInThe12MajorKeysInCamelotNotation) {
    EXPECT_EQ(keysRight({{0, false, "8B"},
                         {1, false, "3B"},
                         {2, false, "10B"},
                         {3, false, "5B"},
                         {4, false, "12B"},
                         {5, false, "7B"},
                         {6, false, "2B"},
                         {7, false, "9B"},
                         {8, false, "4B"},
                         {9, false, "11B"},
                         {10, false, "6B"},
                         {11, false, "1B"}},
                        false),
              12);
}

TEST(TrackAnalyzerTest, KeyOfChordsInThe12MinorKeysInCamelotNotation) {
    EXPECT_EQ(keysRight({{0, true, "5A"},
                         {1, true, "12A"},
                         {2, true, "7A"},
                         {3, true, "2A"},
                         {4, true, "9A"},
                         {5, true, "4A"},
                         {6, true, "11A"},
                         {7, true, "6A"},
                         {8, true, "1A"},
                         {9, true, "8A"},
                         {10, true, "3A"},
                         {11, true, "10A"}},
                        false),
              12);
}

TEST(TrackAnalyzerTest, KeyOfMelodiesOverTheirTonicInThe24Keys) {
    // A melody alone carries less of its key than chords do, and its thirds and sixths, which
    // tell major from minor, pass by in a few short notes: at least 22 of the 24.
    std::vector<KeyRow> rows;
    for (int pitchClass = 0; pitchClass < 12; ++pitchClass) {
        for (const bool minor : {false, true})
            rows.push_back({pitchClass, minor, media::camelotKey(pitchClass, minor)});
    }
    const int right = keysRight(rows, true);
    EXPECT_GE(right, 22) << right << " of " << rows.size();
}

TEST(TrackAnalyzerTest, LoudnessAndTruePeakOfTonesAtKnownLevels) {
    struct Row {
        double frequency;
        double peak;
        double phase;
        double expectedLUFS;
        double expectedDBTP;
    };
    // A stereo sine of peak A at 997 Hz measures 20 log10 A LUFS (BS.1770's 1 kHz reference,
    // counted on both channels). At a quarter of the sample rate and 45 degrees off, every
    // sample misses the crest by 3 dB: only an oversampled meter finds the true peak.
    const Row rows[] = {
        {997, 1.0, 0, 0.0, 0.0},
        {997, 0.5, 0, -6.02, -6.02},
        {997, 0.1, 0, -20.0, -20.0},
        {997, 0.01, 0, -40.0, -40.0},
        {22050 / 4.0, 0.5, 3.14159265 / 4, NAN, -6.02},
    };
    for (const Row& row : rows) {
        const std::vector<float> frames = testing::toneSong(row.frequency, row.peak, 8, 22050, row.phase);
        const TrackAnalysis result = TrackAnalyzer::analyzeFrames(frames.data(), frames.size() / 2, 22050);
        SCOPED_TRACE(std::to_string(row.frequency) + " Hz at " + std::to_string(row.peak));
        ASSERT_TRUE(result.loudnessLUFS.has_value());
        if (!std::isnan(row.expectedLUFS)) {
            EXPECT_NEAR(*result.loudnessLUFS, row.expectedLUFS, 0.1);
        }
        ASSERT_TRUE(result.truePeakDBTP.has_value());
        EXPECT_NEAR(*result.truePeakDBTP, row.expectedDBTP, kLoudnessTolerance);
    }
}

// A WAVE file of `seconds` of 8 kHz 8-bit mono: one second of sound, then a hole in the file
// (no disk used) that reads as zeros.
void writeOverlongWave(const std::filesystem::path& path, double seconds) {
    const auto announced = static_cast<std::uint32_t>(seconds * 8000);
    std::ofstream out(path, std::ios::binary);
    const auto u32 = [&](std::uint32_t v) { out.write(reinterpret_cast<const char*>(&v), 4); };
    const auto u16 = [&](std::uint16_t v) { out.write(reinterpret_cast<const char*>(&v), 2); };
    out.write("RIFF", 4);
    u32(36 + announced);
    out.write("WAVEfmt ", 8);
    u32(16);
    u16(1);
    u16(1);
    u32(8000);
    u32(8000);
    u16(1);
    u16(8);
    out.write("data", 4);
    u32(announced);
    const std::string second(8000, '\x90');
    out.write(second.data(), static_cast<std::streamsize>(second.size()));
    out.close();
    std::filesystem::resize_file(path, 44 + announced);
}

TEST(TrackAnalyzerTest, BadInputGetsNoTempoOrKeyAndAReason) {
    vexo::testing::TemporaryDirectory folder;
    const auto path = [&](const char* name) { return folder.path() / name; };
    { std::ofstream(path("notes.mp3")) << "not audio at all"; }
    audio::testing::ToneRecipe silence;
    silence.frequency = 0;
    silence.seconds = 8;
    ASSERT_TRUE(audio::testing::writeToneFile(path("silence.wav"), silence));
    audio::testing::ToneRecipe shortClicks;
    shortClicks.seconds = 3;
    shortClicks.clicksPerMinute = 120;
    ASSERT_TRUE(audio::testing::writeToneFile(path("short.wav"), shortClicks));
    writeOverlongWave(path("long.wav"), 2 * 3600 + 60);

    struct Row {
        const char* name;
        const char* reasonStart;
        ErrorKind kind;
        bool loudness;
    };
    const Row rows[] = {
        {"missing.flac", "no such file", ErrorKind::NotFound, false},
        {"notes.mp3", "not an audio file", ErrorKind::InvalidData, false},
        {"silence.wav", "silent", ErrorKind::Unsupported, false},
        {"short.wav", "shorter than 5 s", ErrorKind::Unsupported, true},
        {"long.wav", "longer than 2 h", ErrorKind::TooLarge, false},
    };
    for (const Row& row : rows) {
        const TrackAnalysis result = TrackAnalyzer::analyzeFile(path(row.name));
        SCOPED_TRACE(row.name);
        EXPECT_FALSE(result.beatsPerMinute.has_value());
        EXPECT_FALSE(result.firstBeatSeconds.has_value());
        EXPECT_FALSE(result.key.has_value());
        ASSERT_TRUE(result.failure);
        EXPECT_EQ(result.failure->kind(), row.kind) << result.failure->message();
        EXPECT_EQ(result.failure->message().rfind(row.reasonStart, 0), 0u) << result.failure->message();
        EXPECT_EQ(result.loudnessLUFS.has_value(), row.loudness);
    }
}

TEST(TrackAnalyzerTest, FileAtTheDecodersRateGivesWhatItsFramesGive) {
    vexo::testing::TemporaryDirectory folder;
    audio::testing::ToneRecipe clicks;
    clicks.sampleRate = 44100;
    clicks.seconds = 12;
    clicks.clicksPerMinute = 100;
    clicks.amplitude = 0.5;
    ASSERT_TRUE(audio::testing::writeToneFile(folder.path() / "clicks.flac", clicks));
    const TrackAnalysis result = TrackAnalyzer::analyzeFile(folder.path() / "clicks.flac");
    EXPECT_EQ(result.failure.value_or(Error(ErrorKind::Unsupported, "no key found")).message(), "no key found");
    ASSERT_TRUE(result.beatsPerMinute.has_value());
    EXPECT_NEAR(*result.beatsPerMinute, 100, kTempoTolerance);
    ASSERT_TRUE(result.firstBeatSeconds.has_value());
    EXPECT_NEAR(*result.firstBeatSeconds, 0, kFirstBeatTolerance);
    EXPECT_NEAR(result.durationSeconds, 12, 0.05);
}

} // namespace
} // namespace vexo::analysis
