#include "audio/effects/Bitcrusher.h"

#include <cmath>

namespace vexo::sound {

namespace {

constexpr float kLevels = static_cast<float>(1 << (Bitcrusher::kBits - 1));

} // namespace

void Bitcrusher::process(float* interleaved, std::size_t frames) noexcept {
    for (std::size_t frame = 0; frame < frames; ++frame) {
        if (m_count == 0)
            for (std::size_t channel = 0; channel < 2; ++channel)
                m_held[channel] = std::round(interleaved[frame * 2 + channel] * kLevels) / kLevels;
        m_count = m_count + 1 == kHoldFrames ? 0 : m_count + 1;
        interleaved[frame * 2] = m_held[0];
        interleaved[frame * 2 + 1] = m_held[1];
    }
}

void Bitcrusher::reset() noexcept {
    m_held = {};
    m_count = 0;
}

} // namespace vexo::sound
