#pragma once

#include <cstddef>

#include "audio/effects/BeatClock.h"

// A rhythmic gate on the beat grid: each sixteenth note opens at its grid position, stays
// open for half of its length and closes for the other half. Each edge is a 2 ms ramp, short
// enough to sound sharp and long enough not to click. It keeps no state: where the gate
// stands follows from the beat alone. Audio thread; never allocates.
namespace vexo::sound {

class Gate {
public:
    static constexpr double kStepsPerBeat = 4;
    static constexpr double kOpenFraction = 0.5;
    static constexpr double kEdgeSeconds = 0.002;

    // REQUIRES: sampleRate > 0.
    explicit Gate(int sampleRate) noexcept;

    // Gates `frames` interleaved stereo frames in place; `beat` is where the beat stands at
    // the first of them.
    void process(float* interleaved, std::size_t frames, const BeatClock& beat) const noexcept;

private:
    // The gain `framesIntoStep` frames after a sixteenth's grid position, for a sixteenth
    // `stepFrames` long: 0...1.
    [[nodiscard]] double gain(double framesIntoStep, double stepFrames) const noexcept;

    double m_edgeFrames;
};

} // namespace vexo::sound
