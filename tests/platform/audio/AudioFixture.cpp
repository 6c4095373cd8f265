#include "platform/audio/AudioFixture.h"

#include <cmath>
#include <numbers>

#include "platform/audio/AudioFileWriter.h"

namespace vexo::audio::testing {

std::vector<float> toneFrames(const ToneRecipe& recipe) {
    const auto frames = static_cast<std::size_t>(std::llround(recipe.seconds * recipe.sampleRate));
    std::vector<float> out(frames * 2, 0.0f);
    const double step = 2 * std::numbers::pi * recipe.frequency / recipe.sampleRate;
    const double beat = recipe.clicksPerMinute > 0 ? 60.0 * recipe.sampleRate / recipe.clicksPerMinute : 0;
    const auto burst = static_cast<std::size_t>(0.02 * recipe.sampleRate);
    for (std::size_t i = 0; i < frames; ++i) {
        double gain = 1;
        if (beat > 0) {
            // Frames into the current beat; a burst fades out over its 20 ms.
            const double into = std::fmod(static_cast<double>(i), beat);
            gain = into < static_cast<double>(burst) ? 1 - into / static_cast<double>(burst) : 0;
        }
        const auto sample = static_cast<float>(recipe.amplitude * gain * std::sin(step * static_cast<double>(i)));
        out[2 * i] = sample;
        out[2 * i + 1] = sample;
    }
    return out;
}

Expected<void> writeToneFile(const std::filesystem::path& path, const ToneRecipe& recipe) {
    auto writer = AudioFileWriter::create(path, recipe.sampleRate);
    if (!writer)
        return std::move(writer).error();
    const std::vector<float> frames = toneFrames(recipe);
    if (auto written = (*writer)->write(frames.data(), frames.size() / 2); !written)
        return written;
    return (*writer)->finish();
}

} // namespace vexo::audio::testing
