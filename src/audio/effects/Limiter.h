#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// The master limiter: a look-ahead peak limiter that keeps every output sample at or below
// its ceiling (-0.3 dBFS, so that nothing clips even after a lossy encode of a recording),
// with an instant attack over its look-ahead and a smooth release. Below the ceiling it
// passes the sound untouched (apart from the look-ahead delay).
namespace vexo::sound {

class Limiter {
public:
    static constexpr float kCeiling = 0.9660509f; // -0.3 dBFS
    static constexpr double kLookAheadSeconds = 0.0015;
    static constexpr double kReleaseSeconds = 0.08;

    // REQUIRES: sampleRate > 0. Allocates its delay line.
    explicit Limiter(int sampleRate);

    // Limits `frames` interleaved stereo frames in place; the two channels share one gain so
    // that the image stays. Audio thread; never allocates. NaN and infinity come out as 0.
    void process(float* interleaved, std::size_t frames) noexcept;
    // Frames by which the output lags the input.
    [[nodiscard]] std::size_t latencyFrames() const noexcept;
    // The gain applied to the last frame, 0...1 (1: not limiting).
    [[nodiscard]] float gain() const noexcept;
    void reset() noexcept;

private:
    // Look-ahead frames: the delay, the window of the minimum and the length of the average.
    std::size_t m_lookAhead;
    // The delayed sound: interleaved stereo, m_lookAhead frames.
    std::vector<float> m_delay;
    std::size_t m_position = 0;
    // The smallest gain the frames in the delay line need, kept as a monotonic queue (a
    // ring of m_lookAhead + 1 entries: frame number and gain, the gains rising).
    std::vector<std::uint64_t> m_minimumFrames;
    std::vector<float> m_minimumGains;
    std::size_t m_minimumHead = 0;
    std::size_t m_minimumSize = 0;
    std::uint64_t m_frame = 0;
    // That minimum with the release applied: falls at once, rises slowly. In double, as a
    // float's steps near 1 are coarser than the release's last increments.
    double m_envelope = 1;
    double m_releaseCoefficient;
    // A moving average of the envelope over the look-ahead turns its drops into ramps.
    std::vector<float> m_average;
    std::size_t m_averagePosition = 0;
    double m_averageSum;
    float m_gain = 1;
};

} // namespace vexo::sound
