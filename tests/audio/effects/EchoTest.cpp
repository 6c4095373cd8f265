#include "audio/effects/Echo.h"

#include <gtest/gtest.h>

#include "audio/SignalMeasure.h"
#include "audio/effects/EffectSignals.h"

namespace vexo::sound::testing {
namespace {

// Runs `signal` through `echo` in blocks of 480 frames; `clockAt` gives each block's beat.
template <typename ClockAt, typename SendAt>
Frames render(Echo& echo, Frames signal, ClockAt clockAt, SendAt sendAt, float wet = 1) {
    constexpr std::size_t kBlock = 480;
    const std::size_t frames = signal.size() / 2;
    for (std::size_t start = 0; start < frames; start += kBlock) {
        const std::size_t count = std::min(kBlock, frames - start);
        echo.process(signal.data() + start * 2, count, clockAt(start), sendAt(start), wet);
    }
    return signal;
}

// The first frame after `from` whose left sample is louder than `threshold`.
std::size_t firstLoud(const Frames& frames, std::size_t from, double threshold) {
    for (std::size_t i = from; i < frames.size() / 2; ++i)
        if (std::fabs(frames[i * 2]) > threshold)
            return i;
    return frames.size() / 2;
}

TEST(EchoTest, DelayIsBeatsTimesTheBeatHeldAtTheLongest) {
    // A single full-scale click at frame 0; the echo is the first loud frame after it.
    struct Row {
        double beats;
        double framesPerBeat;
        std::size_t expected;
    };
    const std::vector<Row> rows{
        {0.75, 24000, 18000},                                                     // dotted eighth at 120 BPM
        {0.75, 19200, 14400},                                                     // at 150 BPM
        {1, 3, 3},                                                                // tiny delays are fine
        {4, 48000, static_cast<std::size_t>(Echo::kMaximumDelaySeconds * kRate)}, // 4 s held at 2.5
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.expected);
        Echo echo(kRate, row.beats, 0.5);
        Frames click = thenSilence(Frames{1, 1}, 3);
        const Frames out = render(
            echo, click,
            [&](std::size_t) {
                return BeatClock{row.framesPerBeat, 0};
            },
            [](std::size_t) { return 1.0f; });
        // The send fades in over 10 ms, so the click enters at a fraction of its level.
        EXPECT_EQ(firstLoud(out, 1, 1e-6), row.expected);
    }
}

TEST(EchoTest, TempoChangesGlideWithoutClicks) {
    // The tempo jumps between 120 and 126 BPM every quarter second; the echo of a slow sine
    // must stay as smooth as the sine.
    Echo echo(kRate, 0.75, 0.45);
    const Frames input = sine(80, 0.5, framesOf(3));
    const Frames out = render(
        echo, input,
        [](std::size_t frame) {
            return BeatClock{(frame / framesOf(0.25)) % 2 == 0 ? 24000.0 : 24000.0 * 120 / 126, 0};
        },
        [](std::size_t) { return 1.0f; });
    const double sineStep = largestStep(channel(input, 0));
    EXPECT_LT(largestStep(channel(out, 0)), 2.5 * sineStep);
    EXPECT_TRUE(allNormal(out));
}

TEST(EchoTest, EchoOutRingsOnAfterTheSendClosesAndFadesToTrueSilence) {
    // "Echo Out": the send goes from 1 to 0 over a second while the song stops at once.
    Echo echo(kRate, 0.75, 0.45);
    const Frames song = thenSilence(noise(0.5, framesOf(1)), 10);
    const Frames out = render(
        echo, song,
        [](std::size_t) {
            return BeatClock{24000, 0};
        },
        [](std::size_t frame) { return static_cast<float>(std::max(0.0, 1 - static_cast<double>(frame) / kRate)); },
        0.5f);
    const std::size_t end = framesOf(1);
    EXPECT_GT(rms(channel(out, 0, end, framesOf(1))), 0.02) << "echoes after the song";
    EXPECT_TRUE(allNormal(out));
    EXPECT_LT(peak(std::span(out).last(kRate)), 1e-6) << "faded away";

    // A millisecond delay repeats a thousand times a second: without the flush its feedback
    // would reach denormals within the ten seconds.
    Echo fast(kRate, 1, 0.45);
    const Frames fastOut = render(
        fast, song,
        [](std::size_t) {
            return BeatClock{48, 0};
        },
        [](std::size_t) { return 1.0f; });
    EXPECT_TRUE(allNormal(fastOut));
    EXPECT_EQ(peak(std::span(fastOut).last(kRate)), 0);
}

} // namespace
} // namespace vexo::sound::testing
