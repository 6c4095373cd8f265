#include "platform/audio/AudioFixture.h"

#include <cmath>
#include <numbers>

#include "platform/audio/AudioFileWriter.h"

namespace vexo::audio::testing {

std::vector<float> toneFrames(const ToneSpec& spec) {
    const auto frames = static_cast<std::size_t>(std::llround(spec.seconds * spec.sampleRate));
    std::vector<float> out(frames * 2, 0.0f);
    const double step = 2 * std::numbers::pi * spec.frequency / spec.sampleRate;
    const double beat = spec.clicksPerMinute > 0 ? 60.0 * spec.sampleRate / spec.clicksPerMinute : 0;
    const auto burst = static_cast<std::size_t>(0.02 * spec.sampleRate);
    for (std::size_t i = 0; i < frames; ++i) {
        double gain = 1;
        if (beat > 0) {
            // Frames into the current beat; a burst fades out over its 20 ms.
            const double into = std::fmod(static_cast<double>(i), beat);
            gain = into < static_cast<double>(burst) ? 1 - into / static_cast<double>(burst) : 0;
        }
        const auto sample = static_cast<float>(spec.amplitude * gain * std::sin(step * static_cast<double>(i)));
        out[2 * i] = sample;
        out[2 * i + 1] = sample;
    }
    return out;
}

bool writeToneFile(const std::filesystem::path& path, const ToneSpec& spec, std::string* error) {
    const std::unique_ptr<AudioFileWriter> writer = AudioFileWriter::create(path, spec.sampleRate, error);
    if (!writer)
        return false;
    const std::vector<float> frames = toneFrames(spec);
    return writer->write(frames.data(), frames.size() / 2, error) && writer->finish(error);
}

} // namespace vexo::audio::testing
