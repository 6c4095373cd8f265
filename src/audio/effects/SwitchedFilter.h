#pragma once

#include <array>
#include <cstddef>

#include "audio/effects/Biquad.h"
#include "audio/effects/SmoothedGain.h"

// A stereo 24 dB/octave low-pass or high-pass (a fourth-order Butterworth: two cascaded
// biquads) that can be switched on and off while sound plays. The filter runs all the time,
// on or off, so its state is always that of the music; switching crossfades between the
// dry and the filtered sound over SmoothedGain::kSwitchSeconds, which never clicks.
// Audio thread; never allocates.
namespace vexo::sound {

class SwitchedFilter {
public:
    // REQUIRES: sampleRate > 0, frequency > 0 (held at 0.45 * sampleRate at most). Starts off.
    SwitchedFilter(Biquad::Shape shape, double frequency, int sampleRate) noexcept;

    void setEnabled(bool enabled) noexcept;
    [[nodiscard]] bool enabled() const noexcept;

    // Filters `frames` interleaved stereo frames in place (as much as the crossfade says).
    void process(float* interleaved, std::size_t frames) noexcept;
    // Clears the filter state and finishes any crossfade.
    void reset() noexcept;

private:
    // [channel][section]
    std::array<std::array<Biquad, 2>, 2> m_sections;
    SmoothedGain m_mix;
};

} // namespace vexo::sound
