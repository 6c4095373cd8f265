#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <span>
#include <vector>

// Measurements of rendered sound for the audio tests: interleaved stereo float frames in,
// numbers out. Header-only so that every audio test binary shares it.
namespace vexo::sound::testing {

// One channel (0 left, 1 right) of interleaved stereo frames [first, first + count).
inline std::vector<float> channel(std::span<const float> stereo, int which, std::size_t first = 0,
                                  std::size_t count = static_cast<std::size_t>(-1)) {
    const std::size_t frames = stereo.size() / 2;
    first = std::min(first, frames);
    count = std::min(count, frames - first);
    std::vector<float> out(count);
    for (std::size_t i = 0; i < count; ++i)
        out[i] = stereo[(first + i) * 2 + static_cast<std::size_t>(which)];
    return out;
}

inline double rms(std::span<const float> samples) {
    if (samples.empty())
        return 0;
    double sum = 0;
    for (const float sample : samples)
        sum += static_cast<double>(sample) * sample;
    return std::sqrt(sum / static_cast<double>(samples.size()));
}

inline double peak(std::span<const float> samples) {
    double highest = 0;
    for (const float sample : samples)
        highest = std::max(highest, static_cast<double>(std::fabs(sample)));
    return highest;
}

// The amplitude of the `frequency` component (a full-scale sine reads 1), by the Goertzel
// algorithm over a Hann window.
inline double toneAmplitude(std::span<const float> samples, double frequency, int sampleRate) {
    const std::size_t n = samples.size();
    if (n < 2)
        return 0;
    const double omega = 2 * std::numbers::pi * frequency / sampleRate;
    const double coefficient = 2 * std::cos(omega);
    double s1 = 0;
    double s2 = 0;
    double windowSum = 0;
    for (std::size_t i = 0; i < n; ++i) {
        const double window = 0.5 - 0.5 * std::cos(2 * std::numbers::pi * static_cast<double>(i) / (n - 1));
        windowSum += window;
        const double s0 = samples[i] * window + coefficient * s1 - s2;
        s2 = s1;
        s1 = s0;
    }
    const double power = s1 * s1 + s2 * s2 - coefficient * s1 * s2;
    return 2 * std::sqrt(std::max(0.0, power)) / windowSum;
}

// The frequency in [low, high] with the strongest component, searched in `step` Hz steps
// and refined to a tenth of a step.
inline double dominantFrequency(std::span<const float> samples, int sampleRate, double low, double high,
                                double step = 5) {
    double best = low;
    double bestAmplitude = -1;
    for (double f = low; f <= high; f += step)
        if (const double a = toneAmplitude(samples, f, sampleRate); a > bestAmplitude) {
            bestAmplitude = a;
            best = f;
        }
    for (double f = best - step; f <= best + step; f += step / 10)
        if (const double a = toneAmplitude(samples, f, sampleRate); a > bestAmplitude) {
            bestAmplitude = a;
            best = f;
        }
    return best;
}

// The largest difference between two neighbouring samples: a click shows as a step far
// above what the music's own slope gives.
inline double largestStep(std::span<const float> samples) {
    double largest = 0;
    for (std::size_t i = 1; i < samples.size(); ++i)
        largest = std::max(largest, static_cast<double>(std::fabs(samples[i] - samples[i - 1])));
    return largest;
}

// True when every sample is finite and none is a denormal.
inline bool allNormal(std::span<const float> samples) {
    return std::all_of(samples.begin(), samples.end(), [](float sample) {
        return std::isfinite(sample) && (sample == 0 || std::fpclassify(sample) == FP_NORMAL);
    });
}

// Frames at which the sound's envelope (RMS over `window` frames) rises above `threshold`
// after having been below it: the starts of clicks or notes.
inline std::vector<std::size_t> onsets(std::span<const float> samples, double threshold, std::size_t window = 64) {
    std::vector<std::size_t> found;
    bool above = false;
    for (std::size_t start = 0; start + window <= samples.size(); start += window / 4) {
        const double level = rms(samples.subspan(start, window));
        if (!above && level > threshold)
            found.push_back(start);
        above = level > threshold;
    }
    return found;
}

} // namespace vexo::sound::testing
