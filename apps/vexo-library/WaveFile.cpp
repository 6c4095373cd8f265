#include "WaveFile.h"

#include <string_view>

namespace vexo::library {
namespace {

void put(std::vector<std::uint8_t>& out, std::string_view text) {
    out.insert(out.end(), text.begin(), text.end());
}

// RIFF is little-endian whatever the machine.
void putLittleEndian(std::vector<std::uint8_t>& out, std::uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i)
        out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

} // namespace

std::vector<std::uint8_t> WaveFile::encode(std::span<const std::int16_t> samples, int sampleRate) {
    constexpr std::uint32_t kChannels = 1;
    constexpr std::uint32_t kBytesPerSample = 2;
    const auto dataBytes = static_cast<std::uint32_t>(samples.size() * kBytesPerSample);
    std::vector<std::uint8_t> out;
    out.reserve(44 + dataBytes);
    put(out, "RIFF");
    putLittleEndian(out, 36 + dataBytes, 4);
    put(out, "WAVEfmt ");
    putLittleEndian(out, 16, 4);
    putLittleEndian(out, 1, 2); // PCM
    putLittleEndian(out, kChannels, 2);
    putLittleEndian(out, static_cast<std::uint32_t>(sampleRate), 4);
    putLittleEndian(out, static_cast<std::uint32_t>(sampleRate) * kChannels * kBytesPerSample, 4);
    putLittleEndian(out, kChannels * kBytesPerSample, 2);
    putLittleEndian(out, 8 * kBytesPerSample, 2);
    put(out, "data");
    putLittleEndian(out, dataBytes, 4);
    std::size_t at = out.size();
    out.resize(out.size() + dataBytes);
    for (const std::int16_t sample : samples) {
        const auto bits = static_cast<std::uint16_t>(sample);
        out[at++] = static_cast<std::uint8_t>(bits);
        out[at++] = static_cast<std::uint8_t>(bits >> 8);
    }
    return out;
}

} // namespace vexo::library
