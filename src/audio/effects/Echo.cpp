#include "audio/effects/Echo.h"

#include <algorithm>
#include <cmath>

#include "audio/effects/Denormal.h"

namespace vexo::sound {

Echo::Echo(int sampleRate, double beats, double feedback)
    : m_capacity(static_cast<std::size_t>(std::ceil(kMaximumDelaySeconds * sampleRate)) + 2),
      m_beats(beats),
      m_feedback(static_cast<float>(feedback)),
      m_maximumDelay(kMaximumDelaySeconds * sampleRate),
      m_glide(1 - std::exp(-1.0 / (kGlideSeconds * sampleRate))),
      m_send(sampleRate, SmoothedGain::kSwitchSeconds),
      m_wet(sampleRate, SmoothedGain::kSwitchSeconds) {
    m_line.assign(m_capacity * 2, 0.0f);
}

float Echo::readChannel(double position, std::size_t channel) const noexcept {
    // `position` is in [0, m_capacity): linear interpolation between two stored frames.
    const auto first = static_cast<std::size_t>(position);
    const auto fraction = static_cast<float>(position - static_cast<double>(first));
    const std::size_t second = first + 1 == m_capacity ? 0 : first + 1;
    const float a = m_line[first * 2 + channel];
    const float b = m_line[second * 2 + channel];
    return a + fraction * (b - a);
}

void Echo::process(float* interleaved, std::size_t frames, const BeatClock& beat, float send, float wet) noexcept {
    const double target = std::clamp(m_beats * beat.framesPerBeat, 1.0, m_maximumDelay);
    if (m_delay < 0)
        m_delay = target;
    m_send.setTarget(std::clamp(send, 0.0f, 1.0f));
    m_wet.setTarget(std::clamp(wet, 0.0f, 1.0f));
    const auto capacity = static_cast<double>(m_capacity);
    for (std::size_t frame = 0; frame < frames; ++frame) {
        m_delay += (target - m_delay) * m_glide;
        const float sendGain = m_send.next();
        const float wetGain = m_wet.next();
        double position = static_cast<double>(m_write) - m_delay;
        if (position < 0)
            position += capacity;
        // Rounding can land a hair below 0 exactly on `capacity`.
        if (position >= capacity)
            position -= capacity;
        for (std::size_t channel = 0; channel < 2; ++channel) {
            float& sample = interleaved[frame * 2 + channel];
            const float delayed = flushDenormal(readChannel(position, channel));
            m_line[m_write * 2 + channel] = flushDenormal(sendGain * sample + m_feedback * delayed);
            sample += flushDenormal(wetGain * delayed);
        }
        m_write = m_write + 1 == m_capacity ? 0 : m_write + 1;
    }
}

void Echo::reset() noexcept {
    std::fill(m_line.begin(), m_line.end(), 0.0f);
    m_write = 0;
    m_delay = -1;
}

} // namespace vexo::sound
