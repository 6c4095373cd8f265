#include "audio/effects/Reverb.h"

#include <algorithm>
#include <cmath>

#include "audio/effects/Denormal.h"

namespace vexo::sound {

namespace {

// Freeverb's tunings, in samples at 44.1 kHz; scaled to the sample rate.
constexpr double kTuningRate = 44100;
constexpr std::array<std::size_t, Reverb::kCombs> kCombTunings{1116, 1188, 1277, 1356, 1422, 1491, 1557, 1617};
constexpr std::array<std::size_t, Reverb::kAllPasses> kAllPassTunings{556, 441, 341, 225};
constexpr std::size_t kStereoSpread = 23;

// A medium room (Freeverb's room size 0.5, damping 0.5).
constexpr float kCombFeedback = 0.84f;
constexpr float kDamping = 0.2f;
constexpr float kAllPassFeedback = 0.5f;
// Keeps eight resonant combs' sum near the input's level.
constexpr float kInputGain = 0.015f;
// Freeverb's wet scale: its wet 1/3 gives an output gain of 1.
constexpr float kWetScale = 3.0f;

} // namespace

Reverb::Reverb(int sampleRate)
    : m_send(sampleRate, SmoothedGain::kSwitchSeconds),
      m_wet(sampleRate, SmoothedGain::kSwitchSeconds) {
    const double scale = sampleRate / kTuningRate;
    std::size_t total = 0;
    const auto scaled = [scale](std::size_t tuning) {
        return std::max<std::size_t>(1, static_cast<std::size_t>(std::lround(static_cast<double>(tuning) * scale)));
    };
    for (std::size_t channel = 0; channel < 2; ++channel) {
        const std::size_t spread = channel * kStereoSpread;
        for (std::size_t i = 0; i < kCombs; ++i) {
            Comb& comb = m_combs[channel][i];
            comb.offset = total;
            comb.length = scaled(kCombTunings[i] + spread);
            total += comb.length;
        }
        for (std::size_t i = 0; i < kAllPasses; ++i) {
            AllPass& allPass = m_allPasses[channel][i];
            allPass.offset = total;
            allPass.length = scaled(kAllPassTunings[i] + spread);
            total += allPass.length;
        }
    }
    m_lines.assign(total, 0.0f);
}

float Reverb::room(std::size_t channel, float input) noexcept {
    float sum = 0;
    for (Comb& comb : m_combs[channel]) {
        float& cell = m_lines[comb.offset + comb.position];
        const float output = cell;
        comb.filtered = flushDenormal(output * (1 - kDamping) + comb.filtered * kDamping);
        cell = flushDenormal(input + comb.filtered * kCombFeedback);
        comb.position = comb.position + 1 == comb.length ? 0 : comb.position + 1;
        sum += output;
    }
    for (AllPass& allPass : m_allPasses[channel]) {
        float& cell = m_lines[allPass.offset + allPass.position];
        const float stored = cell;
        cell = flushDenormal(sum + stored * kAllPassFeedback);
        sum = stored - sum;
        allPass.position = allPass.position + 1 == allPass.length ? 0 : allPass.position + 1;
    }
    return sum;
}

void Reverb::process(float* interleaved, std::size_t frames, float send, float wet) noexcept {
    m_send.setTarget(std::clamp(send, 0.0f, 1.0f));
    m_wet.setTarget(std::clamp(wet, 0.0f, 1.0f));
    for (std::size_t frame = 0; frame < frames; ++frame) {
        float* sample = interleaved + frame * 2;
        const float input = (sample[0] + sample[1]) * kInputGain * m_send.next();
        const float gain = kWetScale * m_wet.next();
        const float left = room(0, input);
        const float right = room(1, input);
        sample[0] += flushDenormal(gain * left);
        sample[1] += flushDenormal(gain * right);
    }
}

void Reverb::reset() noexcept {
    std::fill(m_lines.begin(), m_lines.end(), 0.0f);
    for (auto& channel : m_combs)
        for (Comb& comb : channel) {
            comb.position = 0;
            comb.filtered = 0;
        }
    for (auto& channel : m_allPasses)
        for (AllPass& allPass : channel)
            allPass.position = 0;
}

} // namespace vexo::sound
