#pragma once

#include <cstdint>
#include <vector>

// Makes the audio of a demonstration song: a four-chord loop in the song's key (I-IV-V-I,
// or i-iv-v-i) over a drum pattern at its tempo (kick on every beat, snare on two and four,
// hi-hat on the off-beats) with a bass line, so that a player has something to play and a beat to see. Different
// seeds give different timbres and patterns; the same seed gives the same samples.
namespace vexo::library {

class SongSynthesizer {
public:
    SongSynthesizer() = delete;

    static constexpr int kSampleRate = 22050;
    // Songs are whole bars; their length is kept within these bounds.
    static constexpr double kShortestSeconds = 20;
    static constexpr double kLongestSeconds = 40;

    struct Sound {
        // At least 40.
        int beatsPerMinute = 120;
        // 0 = C ... 11 = B.
        int keyRoot = 9;
        bool minor = true;
        // Wanted length, rounded to whole bars and held within the bounds above.
        double seconds = 30;
        std::uint32_t seed = 0;
    };

    // Mono samples at kSampleRate, fading in and out.
    [[nodiscard]] static std::vector<std::int16_t> render(const Sound& sound);
};

} // namespace vexo::library
