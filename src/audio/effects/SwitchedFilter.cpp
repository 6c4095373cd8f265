#include "audio/effects/SwitchedFilter.h"

#include <algorithm>

namespace vexo::sound {

namespace {

// The pole pairs of a fourth-order Butterworth: 1 / (2 cos(pi/8)) and 1 / (2 cos(3 pi/8)).
constexpr std::array<double, 2> kButterworthQ{0.54119610014619690, 1.3065629648763766};

} // namespace

SwitchedFilter::SwitchedFilter(Biquad::Shape shape, double frequency, int sampleRate) noexcept
    : m_mix(sampleRate, SmoothedGain::kSwitchSeconds) {
    for (auto& channel : m_sections)
        for (std::size_t section = 0; section < channel.size(); ++section)
            channel[section].configure(shape, std::min(frequency, 0.45 * sampleRate), kButterworthQ[section],
                                       sampleRate);
}

void SwitchedFilter::setEnabled(bool enabled) noexcept {
    m_mix.setTarget(enabled ? 1.0f : 0.0f);
}

bool SwitchedFilter::enabled() const noexcept {
    return m_mix.target() > 0;
}

void SwitchedFilter::process(float* interleaved, std::size_t frames) noexcept {
    for (std::size_t frame = 0; frame < frames; ++frame) {
        const float mix = m_mix.next();
        for (std::size_t channel = 0; channel < 2; ++channel) {
            float& sample = interleaved[frame * 2 + channel];
            double filtered = sample;
            for (Biquad& section : m_sections[channel])
                filtered = section.process(filtered);
            sample += mix * (static_cast<float>(filtered) - sample);
        }
    }
}

void SwitchedFilter::reset() noexcept {
    for (auto& channel : m_sections)
        for (Biquad& section : channel)
            section.reset();
    m_mix.settle();
}

} // namespace vexo::sound
