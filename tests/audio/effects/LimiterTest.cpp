#include "audio/effects/Limiter.h"

#include <algorithm>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "audio/SignalMeasure.h"
#include "audio/effects/EffectSignals.h"

namespace vexo::sound::testing {
namespace {

Frames limit(Limiter& limiter, Frames signal, std::size_t block) {
    const std::size_t frames = signal.size() / 2;
    for (std::size_t start = 0; start < frames; start += block)
        limiter.process(signal.data() + start * 2, std::min(block, frames - start));
    return signal;
}

Frames withSampleAt(Frames signal, std::size_t frame, float value) {
    signal[frame * 2] = value;
    return signal;
}

TEST(LimiterTest, NoSampleEverPassesTheCeilingAndQuietSoundPassesUntouched) {
    constexpr float kInf = std::numeric_limits<float>::infinity();
    constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
    const std::size_t frames = framesOf(1);
    const Frames quiet = sine(1000, 0.5, frames);
    enum class Expect { Untouched, AtTheCeiling };
    struct Row {
        std::string name;
        Frames input;
        Expect expect;
        // Input frames that must come out as exactly 0.
        std::vector<std::size_t> zeroed;
    };
    const std::vector<Row> rows{
        {"sine at 0.5", quiet, Expect::Untouched, {}},
        {"sine at 2", sine(1000, 2, frames), Expect::AtTheCeiling, {}},
        {"sine at 10", sine(1000, 10, frames), Expect::AtTheCeiling, {}},
        {"low sine at 3", sine(40, 3, frames), Expect::AtTheCeiling, {}},
        {"noise at 4", noise(4, frames), Expect::AtTheCeiling, {}},
        {"spike of 4", withSampleAt(Frames(frames * 2, 0.0f), 1000, 4), Expect::AtTheCeiling, {}},
        {"NaN", withSampleAt(quiet, 1000, kNaN), Expect::Untouched, {1000}},
        {"+inf", withSampleAt(quiet, 1000, kInf), Expect::Untouched, {1000}},
        {"-inf", withSampleAt(quiet, 1000, -kInf), Expect::Untouched, {1000}},
        // After a loud second the release brings the gain back to exactly 1.
        {"loud then quiet",
         [&] {
             Frames signal = sine(1000, 4, frames);
             const Frames after = sine(1000, 0.5, frames * 2);
             signal.insert(signal.end(), after.begin(), after.end());
             return signal;
         }(),
         Expect::AtTheCeiling,
         {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Limiter limiter(kRate);
        const std::size_t latency = limiter.latencyFrames();
        EXPECT_EQ(latency, framesOf(Limiter::kLookAheadSeconds));
        const Frames output = limit(limiter, row.input, 4096);

        EXPECT_LE(peak(output), Limiter::kCeiling);
        EXPECT_TRUE(allNormal(output));
        for (const std::size_t frame : row.zeroed)
            EXPECT_EQ(output[(frame + latency) * 2], 0);
        if (row.expect == Expect::Untouched) {
            for (std::size_t i = 0; i + latency < row.input.size() / 2; ++i) {
                if (std::find(row.zeroed.begin(), row.zeroed.end(), i) != row.zeroed.end())
                    continue;
                ASSERT_EQ(output[(i + latency) * 2], row.input[i * 2]) << "frame " << i;
                ASSERT_EQ(output[(i + latency) * 2 + 1], row.input[i * 2 + 1]) << "frame " << i;
            }
            EXPECT_EQ(limiter.gain(), 1);
        } else {
            EXPECT_GT(peak(output), Limiter::kCeiling * 0.97) << "loud sound is held near the ceiling";
        }
        if (row.name == "loud then quiet") {
            // From 1.5 s after the loud part: the quiet sine again, untouched.
            for (std::size_t i = frames * 5 / 2; i + latency < row.input.size() / 2; ++i)
                ASSERT_EQ(output[(i + latency) * 2], row.input[i * 2]) << "frame " << i;
            EXPECT_EQ(limiter.gain(), 1);
        }

        // Any block size gives the same sound.
        Limiter oneByOne(kRate);
        const Frames single = limit(oneByOne, row.input, 1);
        EXPECT_EQ(single, output);
    }
}

TEST(LimiterTest, GainRampsDownOverTheLookAheadAndReleasesSlowly) {
    // A quiet sine with one loud second (4 times louder) in the middle, a frame at a time.
    Limiter limiter(kRate);
    const std::size_t latency = limiter.latencyFrames();
    Frames signal = sine(200, 0.5, framesOf(3.5));
    const std::size_t loudFrom = framesOf(1);
    for (std::size_t i = loudFrom * 2; i < framesOf(2) * 2; ++i)
        signal[i] *= 4;
    std::vector<float> gains;
    for (std::size_t frame = 0; frame < signal.size() / 2; ++frame) {
        limiter.process(signal.data() + frame * 2, 1);
        gains.push_back(limiter.gain());
    }
    // The gain needed is 0.966 / 2 = 0.48; it falls as a ramp across the look-ahead, and
    // has arrived when the loud part comes out.
    double largestFall = 0;
    for (std::size_t i = 1; i < gains.size(); ++i)
        largestFall = std::max(largestFall, static_cast<double>(gains[i - 1] - gains[i]));
    EXPECT_LE(largestFall, (1 - Limiter::kCeiling / 2) / static_cast<double>(latency) * 1.01);
    EXPECT_EQ(gains[loudFrom - 1], 1) << "untouched until the loud part enters the look-ahead";
    // Its first crest, a quarter period (60 frames) in, leaves the look-ahead at the gain
    // it needs.
    EXPECT_LE(gains[loudFrom + 60 + latency], Limiter::kCeiling / 2);
    // Held down for the loud second, then released over several tenths of a second.
    EXPECT_NEAR(peak(channel(signal, 0, framesOf(1.1), framesOf(0.8))), Limiter::kCeiling, 0.01);
    const std::size_t quietOut = framesOf(2) + latency;
    EXPECT_LT(gains[quietOut + framesOf(Limiter::kReleaseSeconds)], 0.9);
    EXPECT_GT(gains[quietOut + framesOf(Limiter::kReleaseSeconds)], 0.7);
    ASSERT_LT(quietOut + framesOf(1.2), gains.size());
    EXPECT_EQ(gains[quietOut + framesOf(1.2)], 1);

    limiter.reset();
    EXPECT_EQ(limiter.gain(), 1);
    Frames after = sine(200, 0.5, framesOf(0.1));
    const Frames out = limit(limiter, after, 256);
    for (std::size_t i = 0; i < latency * 2; ++i)
        EXPECT_EQ(out[i], 0) << "reset empties the look-ahead";
}

} // namespace
} // namespace vexo::sound::testing
