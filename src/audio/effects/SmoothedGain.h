#pragma once

#include <algorithm>

// A gain that follows its target in a straight line, covering the full 0...1 range in a
// fixed time, so that switching something on or off never steps the sound. A plain value
// owned by one audio-thread object; never allocates.
namespace vexo::sound {

class SmoothedGain {
public:
    // The ramp most switches use: short enough to feel instant, long enough not to click.
    static constexpr double kSwitchSeconds = 0.01;

    // REQUIRES: sampleRate > 0, seconds > 0.
    SmoothedGain(int sampleRate, double seconds, float initial = 0) noexcept
        : m_value(initial),
          m_target(initial),
          m_step(static_cast<float>(1.0 / (seconds * sampleRate))) {}

    void setTarget(float target) noexcept { m_target = target; }
    // Jumps to the target at once: for a reset, never while sound plays.
    void settle() noexcept { m_value = m_target; }

    // Moves one frame towards the target and returns the new value.
    float next() noexcept {
        if (m_value < m_target)
            m_value = std::min(m_target, m_value + m_step);
        else if (m_value > m_target)
            m_value = std::max(m_target, m_value - m_step);
        return m_value;
    }

    [[nodiscard]] float value() const noexcept { return m_value; }
    [[nodiscard]] float target() const noexcept { return m_target; }
    [[nodiscard]] bool settled() const noexcept { return m_value == m_target; }

private:
    float m_value;
    float m_target;
    float m_step;
};

} // namespace vexo::sound
