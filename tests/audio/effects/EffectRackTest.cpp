#include "audio/effects/EffectRack.h"

#include <array>
#include <functional>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "audio/SignalMeasure.h"
#include "audio/effects/EffectSignals.h"

namespace vexo::sound::testing {
namespace {

// 120 BPM at kRate.
constexpr double kFramesPerBeat = 24000;
constexpr std::size_t kBlock = 480;

using Switch = std::function<void(EffectRack&)>;
// Switches applied at the start of the block that holds their frame.
using Switches = std::vector<std::pair<std::size_t, Switch>>;

Frames render(EffectRack& rack, Frames signal, const Switches& switches = {}, BeatClock clock = {kFramesPerBeat, 0}) {
    const std::size_t frames = signal.size() / 2;
    for (std::size_t start = 0; start < frames; start += kBlock) {
        const std::size_t count = std::min(kBlock, frames - start);
        for (const auto& [frame, apply] : switches)
            if (frame >= start && frame < start + count)
                apply(rack);
        rack.process(signal.data() + start * 2, count, clock);
        clock.phase += static_cast<double>(count) / clock.framesPerBeat;
        clock.phase -= std::floor(clock.phase);
    }
    return signal;
}

Switch turnOn(EffectKind kind) {
    return [kind](EffectRack& rack) {
        rack.select(kind);
        rack.setEffectEnabled(true);
    };
}

const Switch kEffectOff = [](EffectRack& rack) { rack.setEffectEnabled(false); };
const Switch kLowPassOn = [](EffectRack& rack) { rack.setLowPassEnabled(true); };
const Switch kLowPassOff = [](EffectRack& rack) { rack.setLowPassEnabled(false); };
const Switch kHighPassOn = [](EffectRack& rack) { rack.setHighPassEnabled(true); };
const Switch kHighPassOff = [](EffectRack& rack) { rack.setHighPassEnabled(false); };

std::string nameOf(EffectKind kind) {
    return std::string(kEffectNames[static_cast<std::size_t>(kind)]);
}

// RMS of the left channel over [first, first + count) frames.
double windowLevel(const Frames& frames, std::size_t first, std::size_t count) {
    return rms(channel(frames, 0, first, count));
}

TEST(EffectRackTest, FiltersCutTheBandTheirNameSays) {
    const std::array<double, 6> tones{100, 500, 750, 1000, 1500, 8000};
    const Frames input = sines(tones, 0.15, framesOf(1));
    struct Row {
        const char* name;
        Switch enable;
        double frequency;
        // Change of the tone's level in dB: [lowest, highest].
        double lowest;
        double highest;
    };
    // A fourth-order Butterworth: -3 dB at the corner, -24 dB an octave beyond it.
    const std::vector<Row> rows{
        {"low-pass keeps 100 Hz", kLowPassOn, 100, -1, 1},
        {"low-pass corner", kLowPassOn, 500, -3.5, -2.5},
        {"low-pass an octave up", kLowPassOn, 1000, -26, -22},
        {"low-pass cuts 8 kHz", kLowPassOn, 8000, -200, -20},
        {"high-pass cuts 100 Hz", kHighPassOn, 100, -200, -20},
        {"high-pass an octave down", kHighPassOn, 750, -26, -22},
        {"high-pass corner", kHighPassOn, 1500, -3.5, -2.5},
        {"high-pass keeps 8 kHz", kHighPassOn, 8000, -1, 1},
    };
    const auto measured = channel(input, 0, framesOf(0.5));
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EffectRack rack(kRate);
        const Frames output = render(rack, input, {{0, row.enable}});
        const auto after = channel(output, 0, framesOf(0.5));
        const double change =
            decibels(toneAmplitude(after, row.frequency, kRate) / toneAmplitude(measured, row.frequency, kRate));
        EXPECT_GE(change, row.lowest);
        EXPECT_LE(change, row.highest);
    }
}

// The level of each of `tones` in windows every quarter second: how far the loudest change
// of one tone goes, in dB. A moving notch shows as a large swing.
double largestSwing(const Frames& output, std::span<const double> tones) {
    double largest = 0;
    for (const double tone : tones) {
        double low = 1e9;
        double high = -1e9;
        for (std::size_t first = framesOf(0.25); first + 4096 < output.size() / 2; first += framesOf(0.25)) {
            const double level = decibels(toneAmplitude(channel(output, 0, first, 4096), tone, kRate));
            low = std::min(low, level);
            high = std::max(high, level);
        }
        largest = std::max(largest, high - low);
    }
    return largest;
}

TEST(EffectRackTest, EachEffectShapesTheSoundAsItsNameSays) {
    const std::array<double, 10> tones{220, 350, 560, 890, 1400, 2250, 3600, 5700, 9100, 14500};
    const Frames toneSum = sines(tones, 0.08, framesOf(5));
    const Frames burst = thenSilence(sine(1000, 0.5, framesOf(0.02)), 2);
    const Frames noiseBurst = thenSilence(noise(0.5, framesOf(0.05)), 3);
    // Not a divisor of the sixteenths, so that the edges fall on every part of its wave.
    const Frames tone = sine(1030, 0.5, framesOf(1));
    const Frames pure = sine(997, 0.8, framesOf(0.5));

    struct Row {
        EffectKind kind;
        const Frames* input;
        BeatClock clock;
        std::function<void(const Frames& output)> expect;
    };
    const std::vector<Row> rows{
        {EffectKind::Echo,
         &burst,
         {kFramesPerBeat, 0},
         [](const Frames& out) {
             // 3/4 beat = 18000 frames; feedback 0.45, wet 0.5. The burst's first 10 ms
             // still fade in with the send, so only its second half is compared.
             const double burstLevel = windowLevel(out, 480, 480);
             EXPECT_LT(windowLevel(out, 1000, 16000), 1e-6) << "the gap before the echo";
             EXPECT_NEAR(windowLevel(out, 18000 + 480, 480) / burstLevel, 0.5, 0.02);
             EXPECT_NEAR(windowLevel(out, 36000 + 480, 480) / burstLevel, 0.5 * 0.45, 0.01);
             EXPECT_LT(windowLevel(out, 19000, 16000), 1e-6) << "between the echoes";
         }},
        {EffectKind::Reverb,
         &noiseBurst,
         {kFramesPerBeat, 0},
         [](const Frames& out) {
             const double burstLevel = windowLevel(out, framesOf(0.02), framesOf(0.03));
             const double early = windowLevel(out, framesOf(0.15), framesOf(0.2));
             const double late = windowLevel(out, framesOf(2.5), framesOf(0.4));
             EXPECT_GT(early, 0.05 * burstLevel) << "the room answers after the burst";
             EXPECT_LT(early, burstLevel);
             EXPECT_LT(late, 0.1 * early) << "and dies away";
         }},
        {EffectKind::Gate,
         &tone,
         {kFramesPerBeat, 0.3},
         [](const Frames& out) {
             // Phase 0.3: the first sixteenth on the grid is at beat 0.5, frame 4800; each
             // is 6000 frames, open for 3000 with 96-frame (2 ms) edges.
             for (std::size_t step = 4800; step + 6000 <= out.size() / 2; step += 6000) {
                 EXPECT_NEAR(windowLevel(out, step + 100, 2800), 0.5 / std::sqrt(2), 0.01) << step;
                 EXPECT_LT(windowLevel(out, step + 3000, 3000), 1e-6) << step;
             }
             // The 2 ms edges: a step no larger than the tone's own (0.065) and a little.
             EXPECT_LT(largestStep(channel(out, 0)), 0.08);
         }},
        {EffectKind::Bitcrusher,
         &pure,
         {kFramesPerBeat, 0},
         [](const Frames& out) {
             const auto left = channel(out, 0, framesOf(0.1));
             // Holding 4 frames mirrors the tone around 12 kHz: an image at 11003 Hz.
             EXPECT_GT(toneAmplitude(left, 12000 - 997, kRate), 0.01);
             // 6 bits: every sample on a step of 1/32, and a distortion far above a clean sine's.
             for (const float sample : left)
                 ASSERT_NEAR(sample * 32, std::round(sample * 32), 1e-4);
             const double fundamental = toneAmplitude(left, 997, kRate) / std::sqrt(2);
             const double total = rms(left);
             EXPECT_GT(std::sqrt(total * total - fundamental * fundamental) / total, 0.05);
         }},
        {EffectKind::Flanger,
         &toneSum,
         {kFramesPerBeat, 0},
         [&tones](const Frames& out) { EXPECT_GT(largestSwing(out, tones), 10); }},
        {EffectKind::Phaser,
         &toneSum,
         {kFramesPerBeat, 0},
         [&tones](const Frames& out) { EXPECT_GT(largestSwing(out, tones), 10); }},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(nameOf(row.kind));
        EffectRack rack(kRate);
        const Frames output = render(rack, *row.input, {{0, turnOn(row.kind)}}, row.clock);
        ASSERT_TRUE(allNormal(output));
        row.expect(output);
    }
    EXPECT_LT(largestSwing(toneSum, tones), 0.5) << "the measure itself on the dry sound";
}

TEST(EffectRackTest, SilenceAfterLoudSoundStaysFreeOfDenormals) {
    const Frames input = thenSilence(noise(0.9, framesOf(1)), 10);
    std::vector<std::pair<std::string, Switch>> rows;
    for (std::size_t i = 0; i < kEffectKindCount; ++i)
        rows.emplace_back(nameOf(static_cast<EffectKind>(i)), turnOn(static_cast<EffectKind>(i)));
    rows.emplace_back("low-pass", kLowPassOn);
    rows.emplace_back("high-pass", kHighPassOn);
    for (const auto& [name, enable] : rows) {
        SCOPED_TRACE(name);
        EffectRack rack(kRate);
        const Frames output = render(rack, input, {{0, enable}});
        EXPECT_TRUE(allNormal(output));
        EXPECT_LT(peak(std::span(output).last(kRate * 2)), 1e-6) << "the last second is silent";
    }
}

TEST(EffectRackTest, SwitchingAndSelectingNeverClick) {
    // A slow, loud sine: its own largest step is 0.004, so a click stands out.
    const Frames input = sine(60, 0.5, framesOf(2));
    constexpr double kClick = 0.01;
    const std::size_t on = framesOf(0.5);
    const std::size_t change = framesOf(1);
    const std::size_t off = framesOf(1.5);
    struct Row {
        std::string name;
        Switches switches;
        // The same sound with each setting held throughout: steps that belong to the effect.
        std::vector<Switch> steady;
    };
    std::vector<Row> rows;
    for (std::size_t i = 0; i < kEffectKindCount; ++i) {
        const auto kind = static_cast<EffectKind>(i);
        rows.push_back({nameOf(kind) + " on and off", {{on, turnOn(kind)}, {off, kEffectOff}}, {turnOn(kind)}});
    }
    rows.push_back({"Flanger to Bitcrusher",
                    {{on, turnOn(EffectKind::Flanger)}, {change, turnOn(EffectKind::Bitcrusher)}, {off, kEffectOff}},
                    {turnOn(EffectKind::Flanger), turnOn(EffectKind::Bitcrusher)}});
    rows.push_back(
        {"Echo to Gate to Phaser",
         {{on, turnOn(EffectKind::Echo)}, {change, turnOn(EffectKind::Gate)}, {off, turnOn(EffectKind::Phaser)}},
         {turnOn(EffectKind::Echo), turnOn(EffectKind::Gate), turnOn(EffectKind::Phaser)}});
    rows.push_back({"low-pass on and off", {{on, kLowPassOn}, {off, kLowPassOff}}, {kLowPassOn}});
    rows.push_back({"high-pass on and off", {{on, kHighPassOn}, {off, kHighPassOff}}, {kHighPassOn}});

    const double dryStep = largestStep(channel(input, 0));
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        double allowed = dryStep;
        for (const Switch& setting : row.steady) {
            EffectRack rack(kRate);
            const Frames steady = render(rack, input, {{0, setting}});
            // Past the first switch-on fade.
            allowed = std::max(allowed, largestStep(channel(steady, 0, framesOf(0.1))));
        }
        EffectRack rack(kRate);
        const Frames output = render(rack, input, row.switches);
        EXPECT_LE(largestStep(channel(output, 0)), allowed + kClick);
        EXPECT_LE(largestStep(channel(output, 1)), allowed + kClick);
    }
}

TEST(EffectRackTest, TailsRingOutAfterSwitchingOffAndEverythingOffIsUntouched) {
    const Frames burst = thenSilence(noise(0.5, framesOf(0.05)), 1);
    const std::size_t offAt = framesOf(0.06);
    struct Row {
        EffectKind kind;
        std::size_t first;
        std::size_t count;
        double atLeast;
    };
    const std::vector<Row> rows{
        // The first echo, 18000 frames after the burst, at about half its level.
        {EffectKind::Echo, 18000 + 480, 1200, 0.1},
        {EffectKind::Reverb, framesOf(0.15), framesOf(0.2), 0.01},
        // Replacing effects stop with their fade: only silence after the burst.
        {EffectKind::Flanger, framesOf(0.15), framesOf(0.2), 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(nameOf(row.kind));
        EffectRack rack(kRate);
        const Frames output = render(rack, burst, {{0, turnOn(row.kind)}, {offAt, kEffectOff}});
        const double level = windowLevel(output, row.first, row.count);
        if (row.atLeast > 0)
            EXPECT_GT(level, row.atLeast);
        else
            EXPECT_EQ(level, 0);
    }

    EffectRack rack(kRate);
    const Frames music = noise(0.9, framesOf(0.5));
    rack.select(EffectKind::Reverb);
    EXPECT_EQ(rack.selected(), EffectKind::Reverb);
    EXPECT_EQ(render(rack, music), music) << "bit for bit with nothing switched on";
}

TEST(EffectRackTest, ResetSilencesTailsAndKeepsTheSettings) {
    EffectRack rack(kRate);
    const Frames loud = noise(0.5, framesOf(0.5));
    (void)render(rack, loud, {{0, turnOn(EffectKind::Reverb)}, {0, kLowPassOn}});
    rack.reset();
    const Frames silence(framesOf(0.5) * 2, 0.0f);
    EXPECT_EQ(peak(render(rack, silence)), 0) << "no tail left";
    const std::array<double, 2> tones{100, 8000};
    const Frames input = sines(tones, 0.25, framesOf(0.5));
    const Frames after = render(rack, input);
    EXPECT_LT(toneAmplitude(channel(after, 0, framesOf(0.25)), 8000, kRate), 0.25 * 0.1) << "still low-passed";
    EffectRack lowPassOnly(kRate);
    const Frames plain = render(lowPassOnly, input, {{0, kLowPassOn}});
    double difference = 0;
    for (std::size_t i = framesOf(0.25) * 2; i < after.size(); ++i)
        difference = std::max(difference, static_cast<double>(std::fabs(after[i] - plain[i])));
    EXPECT_GT(difference, 0.01) << "still reverberating";
}

} // namespace
} // namespace vexo::sound::testing
