#include "audio/effects/Flanger.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "audio/effects/Denormal.h"

namespace vexo::sound {

Flanger::Flanger(int sampleRate)
    : m_capacity(static_cast<std::size_t>(std::ceil(kLongestDelaySeconds * sampleRate)) + 3),
      m_sampleRate(sampleRate) {
    m_line.assign(m_capacity * 2, 0.0f);
}

void Flanger::process(float* interleaved, std::size_t frames) noexcept {
    const double step = kSweepHertz / m_sampleRate;
    const auto capacity = static_cast<double>(m_capacity);
    for (std::size_t frame = 0; frame < frames; ++frame) {
        for (std::size_t channel = 0; channel < 2; ++channel) {
            const double turn = 2 * std::numbers::pi * (m_phase - 0.25 * static_cast<double>(channel));
            const double sweep = 0.5 - 0.5 * std::cos(turn);
            const double delay =
                (kShortestDelaySeconds + (kLongestDelaySeconds - kShortestDelaySeconds) * sweep) * m_sampleRate;
            double position = static_cast<double>(m_write) - delay;
            if (position < 0)
                position += capacity;
            if (position >= capacity)
                position -= capacity;
            const auto first = static_cast<std::size_t>(position);
            const auto fraction = static_cast<float>(position - static_cast<double>(first));
            const std::size_t second = first + 1 == m_capacity ? 0 : first + 1;
            const float a = m_line[first * 2 + channel];
            const float b = m_line[second * 2 + channel];
            const float delayed = flushDenormal(a + fraction * (b - a));

            float& sample = interleaved[frame * 2 + channel];
            m_line[m_write * 2 + channel] = flushDenormal(sample + kFeedback * delayed);
            // Half and half keeps the level near the dry sound's between the comb's peaks
            // (+5 dB) and notches.
            sample = 0.5f * (sample + delayed);
        }
        m_write = m_write + 1 == m_capacity ? 0 : m_write + 1;
        m_phase += step;
        if (m_phase >= 1)
            m_phase -= 1;
    }
}

void Flanger::reset() noexcept {
    std::fill(m_line.begin(), m_line.end(), 0.0f);
    m_write = 0;
    m_phase = 0;
}

} // namespace vexo::sound
