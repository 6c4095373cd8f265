#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "platform/base/Expected.h"

// Audio files made on the spot for the audio tests, written with the program's own encoder
// (AudioFileWriter), so any extension it knows gives that format. Stereo, both channels equal.
namespace vexo::audio::testing {

struct ToneRecipe {
    int sampleRate = 48000;
    double seconds = 4;
    // A sine at this frequency and peak amplitude; 0 Hz: silence.
    double frequency = 440;
    double amplitude = 0.5;
    // When above 0, instead of a steady tone: a short burst of the tone (20 ms, fading out)
    // on every beat at this tempo, the first at frame 0, silence between. Onsets mark beats.
    double clicksPerMinute = 0;
};

// The frames a ToneRecipe describes, interleaved stereo.
[[nodiscard]] std::vector<float> toneFrames(const ToneRecipe& recipe);

// Writes them to `path`; fails as the writer does.
[[nodiscard]] Expected<void> writeToneFile(const std::filesystem::path& path, const ToneRecipe& recipe);

} // namespace vexo::audio::testing
