#pragma once

#include <cstddef>
#include <vector>

#include "audio/effects/BeatClock.h"
#include "audio/effects/SmoothedGain.h"

// A stereo echo whose delay follows the tempo. Used by the deck's effect section and by the
// mixer's "Echo Out" transition, which feeds it less and less of the song so that only the
// echoes ring on.
namespace vexo::sound {

class Echo {
public:
    // The longest delay it can hold; a longer one is held at it.
    static constexpr double kMaximumDelaySeconds = 2.5;
    // When the tempo changes, the delay glides to the new length with this time constant
    // (a short tape-like pitch bend of the echoes) instead of jumping, which would click.
    static constexpr double kGlideSeconds = 0.1;

    // REQUIRES: sampleRate > 0, beats > 0, 0 <= feedback < 1. Allocates the delay line.
    Echo(int sampleRate, double beats, double feedback);

    // Adds the echoes of `interleaved` to it in place: out = in + wet * delayed, where the
    // delay line takes `send` * in plus its own feedback. `send` and `wet` are 0...1 and move
    // smoothly from one call to the next. The delay is `beats` * beat.framesPerBeat frames,
    // at most kMaximumDelaySeconds. Audio thread; never allocates.
    void process(float* interleaved, std::size_t frames, const BeatClock& beat, float send, float wet) noexcept;
    // Silences the delay line; the next process() starts at its delay without gliding.
    void reset() noexcept;

private:
    [[nodiscard]] float readChannel(double position, std::size_t channel) const noexcept;

    // Interleaved stereo, m_capacity frames.
    std::vector<float> m_line;
    std::size_t m_capacity;
    std::size_t m_write = 0;
    double m_beats;
    float m_feedback;
    double m_maximumDelay;
    double m_glide;
    // Frames; negative until the first process() after construction or reset().
    double m_delay = -1;
    SmoothedGain m_send;
    SmoothedGain m_wet;
};

} // namespace vexo::sound
