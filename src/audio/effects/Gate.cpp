#include "audio/effects/Gate.h"

#include <algorithm>
#include <cmath>

namespace vexo::sound {

Gate::Gate(int sampleRate) noexcept
    : m_edgeFrames(kEdgeSeconds * sampleRate) {}

double Gate::gain(double framesIntoStep, double stepFrames) const noexcept {
    // A trapezoid: up over the first edge, down over the edge ending half-way. At tempos so
    // fast that the two edges overlap it becomes a triangle, never a step.
    const double open = stepFrames * kOpenFraction;
    const double rising = framesIntoStep / m_edgeFrames;
    const double falling = (open - framesIntoStep) / m_edgeFrames;
    return std::clamp(std::min(rising, falling), 0.0, 1.0);
}

void Gate::process(float* interleaved, std::size_t frames, const BeatClock& beat) const noexcept {
    const double stepFrames = beat.framesPerBeat / kStepsPerBeat;
    // Frames into the current sixteenth at the first frame.
    const double steps = beat.phase * kStepsPerBeat;
    double position = (steps - std::floor(steps)) * stepFrames;
    for (std::size_t frame = 0; frame < frames; ++frame) {
        if (position >= stepFrames)
            position -= stepFrames;
        const auto g = static_cast<float>(gain(position, stepFrames));
        interleaved[frame * 2] *= g;
        interleaved[frame * 2 + 1] *= g;
        position += 1;
    }
}

} // namespace vexo::sound
