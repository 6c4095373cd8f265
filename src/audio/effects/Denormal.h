#pragma once

#include <cmath>

// Feedback paths (delay lines, filter states, reverb combs) decay towards zero after the
// music stops and, without flush-to-zero on the CPU, would pass through denormals, which
// cost a hundred times the work of a normal number. Everything that feeds back goes through
// flushDenormal(): values far below audibility (-300 dB) become exactly 0.
namespace vexo::sound {

inline constexpr double kDenormalThreshold = 1e-15;

[[nodiscard]] inline float flushDenormal(float value) noexcept {
    return std::fabs(value) < static_cast<float>(kDenormalThreshold) ? 0.0f : value;
}

[[nodiscard]] inline double flushDenormal(double value) noexcept {
    return std::fabs(value) < kDenormalThreshold ? 0.0 : value;
}

} // namespace vexo::sound
