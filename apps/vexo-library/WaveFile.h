#pragma once

#include <cstdint>
#include <span>
#include <vector>

// The bytes of a RIFF WAVE file holding 16-bit mono PCM: the one audio format every player
// reads and TagLib tags (with an "id3 " chunk).
namespace vexo::library {

class WaveFile {
public:
    WaveFile() = delete;

    // A complete file of `samples` at `sampleRate` samples a second. REQUIRES: fewer than
    // 2^31 samples.
    [[nodiscard]] static std::vector<std::uint8_t> encode(std::span<const std::int16_t> samples, int sampleRate);
};

} // namespace vexo::library
