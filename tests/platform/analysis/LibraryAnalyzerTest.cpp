#include "platform/analysis/LibraryAnalyzer.h"

#include <atomic>
#include <map>

#include <gtest/gtest.h>

#include "platform/analysis/AnalysisCorpus.h"
#include "platform/analysis/TrackAnalysis.h"
#include "platform/audio/AudioFileWriter.h"
#include "platform/audio/AudioFixture.h"
#include "platform/media/LibraryScanner.h"
#include "platform/media/MediaLibrary.h"
#include "support/TemporaryDirectory.h"

namespace vexo::analysis {
namespace {

namespace fs = std::filesystem;

void writeSong(const fs::path& path, double bpm) {
    testing::BeatRecipe recipe;
    recipe.beatsPerMinute = bpm;
    recipe.seconds = 8;
    recipe.withChords = true;
    const std::vector<float> frames = testing::beatSong(recipe);
    const auto writer = audio::AudioFileWriter::create(path, recipe.sampleRate);
    ASSERT_TRUE(writer);
    ASSERT_TRUE((*writer)->write(frames.data(), frames.size() / 2));
    ASSERT_TRUE((*writer)->finish());
}

class LibraryAnalyzerTest : public ::testing::Test {
protected:
    LibraryAnalyzerTest()
        : m_music(m_folder.path() / "music"),
          m_index(m_folder.path() / "library.sqlite") {
        fs::create_directories(m_music);
        writeSong(m_music / "a.wav", 96);
        writeSong(m_music / "b.flac", 128);
        writeSong(m_music / "c.wav", 140);
        // Indexed like any song, analysed as nothing.
        audio::testing::ToneRecipe silence;
        silence.frequency = 0;
        silence.seconds = 6;
        EXPECT_TRUE(audio::testing::writeToneFile(m_music / "silence.wav", silence));
        media::LibraryScanner::Options options;
        options.applicationGroup.clear();
        EXPECT_TRUE(media::LibraryScanner(m_index, options).scan(m_music));
    }

    std::optional<LibraryAnalyzer::Summary>
    analyze(LibraryAnalyzer::Options options = {},
            const std::function<void(const LibraryAnalyzer::Progress&)>& progress = {}) {
        auto summary = LibraryAnalyzer::analyze(m_index, options, progress);
        EXPECT_TRUE(summary) << summary.error().message();
        if (!summary)
            return std::nullopt;
        return std::move(summary).value();
    }

    vexo::testing::TemporaryDirectory m_folder;
    fs::path m_music;
    fs::path m_index;
};

TEST_F(LibraryAnalyzerTest, BadSongsGetAReasonAndTheRestIsStoredOnce) {
    LibraryAnalyzer::Options options;
    options.threads = 2;
    std::size_t reports = 0;
    const auto first = analyze(options, [&](const LibraryAnalyzer::Progress& progress) {
        ++reports;
        EXPECT_EQ(progress.songsDone, reports);
        EXPECT_EQ(progress.songsTotal, 4u);
    });
    ASSERT_TRUE(first);
    EXPECT_EQ(first->songs, 4u);
    EXPECT_EQ(reports, 4u);
    ASSERT_EQ(first->problems.size(), 1u);
    EXPECT_EQ(first->problems[0].path.filename(), "silence.wav");

    const auto library = media::MediaLibrary::open(m_index).valueOr(nullptr);
    ASSERT_TRUE(library);
    std::map<std::string, media::ItemAnalysis> byFile;
    for (const auto& item : library->items())
        byFile[fs::path(item.assetURL().value_or("")).filename().string()] =
            item.analysis().value_or(media::ItemAnalysis{});
    EXPECT_NEAR(byFile["a.wav"].beatsPerMinute.value_or(0), 96, 0.5);
    EXPECT_NEAR(byFile["b.flac"].beatsPerMinute.value_or(0), 128, 0.5);
    EXPECT_NEAR(byFile["c.wav"].beatsPerMinute.value_or(0), 140, 0.5);
    EXPECT_EQ(byFile["c.wav"].version, kAnalysisVersion);
    EXPECT_TRUE(byFile["c.wav"].loudnessLUFS);
    EXPECT_FALSE(byFile["silence.wav"].beatsPerMinute);
    EXPECT_EQ(byFile["silence.wav"].failure, "silent") << "the reason is stored as the analyser words it";

    // Nothing changed: nothing analysed again, unless forced or only some.
    EXPECT_EQ(analyze()->songs, 0u);
    options.force = true;
    options.only = {m_music / "b.flac"};
    EXPECT_EQ(analyze(options)->songs, 1u);
}

TEST_F(LibraryAnalyzerTest, CancellingKeepsTheSongsFinished) {
    std::atomic<bool> cancel{false};
    LibraryAnalyzer::Options options;
    options.threads = 1;
    options.cancel = &cancel;
    const auto interrupted = analyze(options, [&](const LibraryAnalyzer::Progress&) { cancel = true; });
    ASSERT_TRUE(interrupted);
    EXPECT_EQ(interrupted->songs, 1u);
    EXPECT_TRUE(interrupted->cancelled);

    cancel = false;
    const auto rest = analyze(options);
    ASSERT_TRUE(rest);
    EXPECT_EQ(rest->songs, 3u);
    EXPECT_FALSE(rest->cancelled);
}

} // namespace
} // namespace vexo::analysis
