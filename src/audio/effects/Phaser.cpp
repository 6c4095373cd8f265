#include "audio/effects/Phaser.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "audio/effects/Denormal.h"

namespace vexo::sound {

Phaser::Phaser(int sampleRate) noexcept
    : m_sampleRate(sampleRate) {}

void Phaser::process(float* interleaved, std::size_t frames) noexcept {
    const double step = kSweepHertz / m_sampleRate;
    const double octaves = std::log2(kHighestHertz / kLowestHertz);
    for (std::size_t frame = 0; frame < frames; ++frame) {
        const double sweep = 0.5 - 0.5 * std::cos(2 * std::numbers::pi * m_phase);
        // Held below Nyquist at low sample rates, where the all-pass would turn unstable.
        const double corner = std::min(kLowestHertz * std::exp2(octaves * sweep), 0.45 * m_sampleRate);
        const double t = std::tan(std::numbers::pi * corner / m_sampleRate);
        // y[n] = a x[n] + x[n-1] - a y[n-1]: unit gain at every frequency, 90 degrees at the
        // corner.
        const auto a = static_cast<float>((t - 1) / (t + 1));
        for (std::size_t channel = 0; channel < 2; ++channel) {
            float& sample = interleaved[frame * 2 + channel];
            float signal = sample + kFeedback * m_last[channel];
            for (Stage& stage : m_stages[channel]) {
                const float output = flushDenormal(a * signal + stage.input - a * stage.output);
                stage.input = signal;
                stage.output = output;
                signal = output;
            }
            m_last[channel] = signal;
            sample = 0.5f * (sample + signal);
        }
        m_phase += step;
        if (m_phase >= 1)
            m_phase -= 1;
    }
}

void Phaser::reset() noexcept {
    m_stages = {};
    m_last = {};
    m_phase = 0;
}

} // namespace vexo::sound
