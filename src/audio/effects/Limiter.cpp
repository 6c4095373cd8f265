#include "audio/effects/Limiter.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace vexo::sound {

// How it keeps its promise: the gain applied to the frame leaving the delay line is the
// average, over the last m_lookAhead frames, of an envelope that is never above the smallest
// gain required by any frame in the delay line at that time. Each of those frames' windows
// holds the frame now leaving, so each averaged value (and so the average) is at most the
// gain this frame needs. The final clamp only absorbs rounding.

namespace {

// Closer than this to its target, the release snaps onto it (a step of -0.0001 dB), so that
// it reaches exactly 1, about a second after the last loud peak, and quiet sound comes out
// bit for bit.
constexpr double kReleaseSnap = 1e-5;

} // namespace

Limiter::Limiter(int sampleRate)
    : m_lookAhead(std::max<std::size_t>(1, static_cast<std::size_t>(std::lround(kLookAheadSeconds * sampleRate)))),
      m_releaseCoefficient(1 - std::exp(-1.0 / (kReleaseSeconds * sampleRate))),
      m_averageSum(static_cast<double>(m_lookAhead)) {
    m_delay.assign(m_lookAhead * 2, 0.0f);
    m_minimumFrames.assign(m_lookAhead + 1, 0);
    m_minimumGains.assign(m_lookAhead + 1, 1.0f);
    m_average.assign(m_lookAhead, 1.0f);
}

void Limiter::process(float* interleaved, std::size_t frames) noexcept {
    const std::size_t window = m_lookAhead + 1;
    for (std::size_t frame = 0; frame < frames; ++frame) {
        float* sample = interleaved + frame * 2;
        for (std::size_t channel = 0; channel < 2; ++channel)
            if (!std::isfinite(sample[channel]))
                sample[channel] = 0;
        const float peak = std::max(std::fabs(sample[0]), std::fabs(sample[1]));
        const float required = peak > kCeiling ? kCeiling / peak : 1.0f;

        // The minimum over the frames now in the delay line and this one.
        while (m_minimumSize > 0 && m_minimumGains[(m_minimumHead + m_minimumSize - 1) % window] >= required)
            --m_minimumSize;
        const std::size_t tail = (m_minimumHead + m_minimumSize) % window;
        m_minimumGains[tail] = required;
        m_minimumFrames[tail] = m_frame;
        ++m_minimumSize;
        while (m_minimumFrames[m_minimumHead] + window <= m_frame) {
            m_minimumHead = (m_minimumHead + 1) % window;
            --m_minimumSize;
        }
        const double minimum = m_minimumGains[m_minimumHead];
        ++m_frame;

        if (minimum < m_envelope) {
            m_envelope = minimum;
        } else {
            m_envelope += (minimum - m_envelope) * m_releaseCoefficient;
            if (minimum - m_envelope < kReleaseSnap)
                m_envelope = minimum;
        }

        // The envelope is at most `minimum`, itself a float, so rounding to the nearest float
        // never lifts it past that minimum.
        const auto envelope = static_cast<float>(m_envelope);
        m_averageSum += static_cast<double>(envelope) - m_average[m_averagePosition];
        m_average[m_averagePosition] = envelope;
        if (++m_averagePosition == m_lookAhead) {
            m_averagePosition = 0;
            // Summed afresh once per turn, so that rounding never accumulates.
            m_averageSum = std::accumulate(m_average.begin(), m_average.end(), 0.0);
        }
        m_gain = std::min(1.0f, static_cast<float>(m_averageSum / static_cast<double>(m_lookAhead)));

        for (std::size_t channel = 0; channel < 2; ++channel) {
            float& delayed = m_delay[m_position * 2 + channel];
            const float output = delayed * m_gain;
            delayed = sample[channel];
            sample[channel] = std::clamp(output, -kCeiling, kCeiling);
        }
        m_position = m_position + 1 == m_lookAhead ? 0 : m_position + 1;
    }
}

std::size_t Limiter::latencyFrames() const noexcept {
    return m_lookAhead;
}

float Limiter::gain() const noexcept {
    return m_gain;
}

void Limiter::reset() noexcept {
    std::fill(m_delay.begin(), m_delay.end(), 0.0f);
    m_position = 0;
    m_minimumHead = 0;
    m_minimumSize = 0;
    m_frame = 0;
    m_envelope = 1;
    std::fill(m_average.begin(), m_average.end(), 1.0f);
    m_averagePosition = 0;
    m_averageSum = static_cast<double>(m_lookAhead);
    m_gain = 1;
}

} // namespace vexo::sound
