#pragma once

#include <cstddef>
#include <vector>

// A stereo flanger: the sound mixed with a copy delayed by 1-6 ms, the delay swept by a slow
// sine (the right channel a quarter turn behind the left) and fed back, which gives comb
// notches gliding up and down the frequencies. Audio thread; never allocates.
namespace vexo::sound {

class Flanger {
public:
    static constexpr double kShortestDelaySeconds = 0.001;
    static constexpr double kLongestDelaySeconds = 0.006;
    static constexpr double kSweepHertz = 0.25;
    static constexpr float kFeedback = 0.6f;

    // REQUIRES: sampleRate > 0. Allocates the delay line.
    explicit Flanger(int sampleRate);

    // Replaces `frames` interleaved stereo frames with the flanged sound.
    void process(float* interleaved, std::size_t frames) noexcept;
    // Silences the delay line and restarts the sweep at its shortest delay.
    void reset() noexcept;

private:
    // Interleaved stereo, m_capacity frames.
    std::vector<float> m_line;
    std::size_t m_capacity;
    std::size_t m_write = 0;
    double m_sampleRate;
    // Of the sweep, in turns: 0...1.
    double m_phase = 0;
};

} // namespace vexo::sound
