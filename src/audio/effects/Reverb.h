#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include "audio/effects/SmoothedGain.h"

// A Freeverb-style room: per channel eight damped feedback combs in parallel and four
// all-passes in series, fed the mono sum of the sound; the right channel's lines are a few
// samples longer than the left's, which makes the room wide. Like Echo it adds to the sound,
// so that a tail keeps ringing after the send is closed. Audio thread; never allocates.
namespace vexo::sound {

class Reverb {
public:
    static constexpr std::size_t kCombs = 8;
    static constexpr std::size_t kAllPasses = 4;

    // REQUIRES: sampleRate > 0. Allocates every line.
    explicit Reverb(int sampleRate);

    // Adds the room's answer to `interleaved` in place: out = in + wet * room(send * in).
    // `send` and `wet` are 0...1 and move smoothly from one call to the next; `wet` is on
    // Freeverb's scale, where 1/3 sounds about as loud as the dry sound.
    void process(float* interleaved, std::size_t frames, float send, float wet) noexcept;
    // Silences every line.
    void reset() noexcept;

private:
    struct Comb {
        std::size_t offset = 0;
        std::size_t length = 0;
        std::size_t position = 0;
        float filtered = 0;
    };
    struct AllPass {
        std::size_t offset = 0;
        std::size_t length = 0;
        std::size_t position = 0;
    };

    [[nodiscard]] float room(std::size_t channel, float input) noexcept;

    // Every comb and all-pass line of both channels, back to back.
    std::vector<float> m_lines;
    std::array<std::array<Comb, kCombs>, 2> m_combs{};
    std::array<std::array<AllPass, kAllPasses>, 2> m_allPasses{};
    SmoothedGain m_send;
    SmoothedGain m_wet;
};

} // namespace vexo::sound
