#pragma once

#include <array>
#include <cstddef>

// A stereo phaser: six first-order all-pass stages whose corner sweeps from 300 Hz to 3 kHz
// (evenly in octaves) and back, fed back and mixed with the sound, which gives notches
// gliding through the mid range. Audio thread; never allocates.
namespace vexo::sound {

class Phaser {
public:
    static constexpr std::size_t kStages = 6;
    static constexpr double kLowestHertz = 300;
    static constexpr double kHighestHertz = 3000;
    static constexpr double kSweepHertz = 0.4;
    static constexpr float kFeedback = 0.5f;

    // REQUIRES: sampleRate > 0. Below 6.7 kHz the sweep's top is held under Nyquist.
    explicit Phaser(int sampleRate) noexcept;

    // Replaces `frames` interleaved stereo frames with the phased sound.
    void process(float* interleaved, std::size_t frames) noexcept;
    // Clears the stages and restarts the sweep at its lowest corner.
    void reset() noexcept;

private:
    struct Stage {
        float input = 0;
        float output = 0;
    };

    std::array<std::array<Stage, kStages>, 2> m_stages{};
    std::array<float, 2> m_last{};
    double m_sampleRate;
    // Of the sweep, in turns: 0...1.
    double m_phase = 0;
};

} // namespace vexo::sound
