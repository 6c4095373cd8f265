#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <numbers>
#include <span>
#include <vector>

// Test signals for the effect tests: interleaved stereo float frames, both channels alike.
namespace vexo::sound::testing {

inline constexpr int kRate = 48000;

using Frames = std::vector<float>;

[[nodiscard]] inline std::size_t framesOf(double seconds) {
    return static_cast<std::size_t>(std::lround(seconds * kRate));
}

// A sum of sines of `amplitude` each, with phases spread so that the peaks do not line up.
[[nodiscard]] inline Frames sines(std::span<const double> frequencies, double amplitude, std::size_t frames) {
    Frames out(frames * 2);
    for (std::size_t i = 0; i < frames; ++i) {
        double value = 0;
        for (std::size_t k = 0; k < frequencies.size(); ++k)
            value += amplitude * std::sin(2 * std::numbers::pi * frequencies[k] * static_cast<double>(i) / kRate +
                                          static_cast<double>(k) * 1.1);
        out[i * 2] = out[i * 2 + 1] = static_cast<float>(value);
    }
    return out;
}

[[nodiscard]] inline Frames sine(double frequency, double amplitude, std::size_t frames) {
    const double one[] = {frequency};
    return sines(one, amplitude, frames);
}

// Uniform white noise in [-amplitude, amplitude], the same on every run and every platform.
[[nodiscard]] inline Frames noise(double amplitude, std::size_t frames, std::uint32_t seed = 1) {
    Frames out(frames * 2);
    std::uint32_t state = seed;
    for (float& sample : out) {
        state = state * 1664525u + 1013904223u;
        sample = static_cast<float>(amplitude * (static_cast<double>(state) / 2147483648.0 - 1));
    }
    return out;
}

// `signal` followed by `seconds` of silence.
[[nodiscard]] inline Frames thenSilence(Frames signal, double seconds) {
    signal.resize(signal.size() + framesOf(seconds) * 2, 0.0f);
    return signal;
}

[[nodiscard]] inline double decibels(double ratio) {
    return 20 * std::log10(std::max(ratio, 1e-12));
}

} // namespace vexo::sound::testing
