#include "audio/Track.h"

#include <chrono>
#include <fstream>
#include <iterator>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/audio/AudioFixture.h"
#include "platform/audio/Decoder.h"
#include "support/TemporaryDirectory.h"

namespace vexo::sound {
namespace {

using audio::testing::ToneRecipe;
using namespace std::chrono_literals;

// Reads [start, start + frames) once the worker has it.
std::vector<float> readWhenCached(Track& track, std::int64_t start, std::size_t frames) {
    EXPECT_TRUE(track.waitUntilReadable(start, frames, 10s)) << start;
    std::vector<float> out(frames * 2);
    EXPECT_TRUE(track.read(start, out.data(), frames)) << start;
    return out;
}

TEST(TrackTest, ALongSongPlaysFromAnywhereInABoundedCache) {
    vexo::testing::TemporaryDirectory folder;
    // Ten minutes at a low rate keep the file small; the track reads it at 8 kHz too.
    constexpr int kRate = 8000;
    const auto path = folder.path() / "long.wav";
    ASSERT_TRUE(audio::testing::writeToneFile(path, ToneRecipe{kRate, 600, 97, 0.5, 0}));
    const std::vector<float> whole = audio::testing::toneFrames(ToneRecipe{kRate, 600, 97, 0.5, 0});
    const std::shared_ptr<Track> track = Track::open(path, kRate).valueOr(nullptr);
    ASSERT_TRUE(track);
    EXPECT_EQ(track->frameCount(), 600 * kRate);

    // Jumps forward, back, to the end and to the start read what the file holds there.
    for (const std::int64_t start : {std::int64_t{0}, std::int64_t{4'000'000}, std::int64_t{1'234'567},
                                     std::int64_t{600 * kRate - 100}, std::int64_t{17}}) {
        const std::vector<float> got = readWhenCached(*track, start, 100);
        for (std::size_t i = 0; i < got.size(); ++i)
            ASSERT_NEAR(got[i], whole[static_cast<std::size_t>(start) * 2 + i], 1e-4) << start << "+" << i / 2;
    }
    // Frames before the start and past the end are silence, and count as read.
    std::vector<float> outside(200, 1.0f);
    EXPECT_TRUE(track->read(600 * kRate, outside.data(), 100));
    EXPECT_EQ(outside, std::vector<float>(200, 0.0f));
    EXPECT_TRUE(track->read(-100, outside.data(), 100));
    EXPECT_EQ(outside, std::vector<float>(200, 0.0f));
    // What is far from every place played recently has been let go.
    std::vector<float> far(200);
    EXPECT_FALSE(track->read(300 * kRate, far.data(), 100))
        << "the cache holds about " << Track::kCacheSeconds << " s, not the song";
}

TEST(TrackTest, ATruncatedSongEndsWhereItsFramesEnd) {
    vexo::testing::TemporaryDirectory folder;
    const auto whole = folder.path() / "whole.wav";
    ASSERT_TRUE(audio::testing::writeToneFile(whole, ToneRecipe{48000, 4, 440, 0.5, 0}));
    std::ifstream in(whole, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const auto cut = folder.path() / "cut.wav";
    std::ofstream(cut, std::ios::binary) << bytes.substr(0, bytes.size() / 2);

    const std::shared_ptr<Track> track = Track::open(cut, 48000).valueOr(nullptr);
    ASSERT_TRUE(track);
    (void)readWhenCached(*track, 0, 1000);
    ASSERT_TRUE(track->waitUntilReadable(3 * 48000, 1000, 10s));
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (!track->isExact() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(1ms);
    EXPECT_TRUE(track->isExact());
    EXPECT_NEAR(static_cast<double>(track->frameCount()), 2 * 48000, 100) << "the frames the file really holds";
}

} // namespace
} // namespace vexo::sound
