#pragma once

#include <array>
#include <cstddef>

// Lo-fi: the sound rounded to a few bits (6: 64 steps over -1...1) and held for several
// frames at a time (a quarter of the sample rate), which adds hiss, harmonics and aliasing.
// Audio thread; never allocates.
namespace vexo::sound {

class Bitcrusher {
public:
    static constexpr int kBits = 6;
    static constexpr std::size_t kHoldFrames = 4;

    // Crushes `frames` interleaved stereo frames in place.
    void process(float* interleaved, std::size_t frames) noexcept;
    // The next frame starts a new hold.
    void reset() noexcept;

private:
    std::array<float, 2> m_held{};
    std::size_t m_count = 0;
};

} // namespace vexo::sound
