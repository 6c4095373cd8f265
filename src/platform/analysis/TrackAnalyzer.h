#pragma once

#include <atomic>
#include <cstddef>
#include <filesystem>

#include "platform/analysis/TrackAnalysis.h"

// Analyses one song: decodes it once with the program's decoder (platform/audio's Decoder)
// and feeds, block by block,
//   - the stereo stream at the file's rate (44.1, 48, 22.05 or 24 kHz; other rates are
//     resampled to 44.1 kHz) to the loudness meter (libebur128),
//   - its mono mix at 22.05 or 24 kHz to the key detector (libqm-dsp; KeyDetector.h),
//   - and at half that to the tempo detector (libqm-dsp; TempoDetector.h),
// so that memory stays small whatever the song's length.
//
// Bad input never throws: a file that cannot be decoded, is silent, is shorter than 5 s or
// longer than 2 h gets no tempo and no key, and `failure` says why (loudness is kept where it
// was measured). Any thread; one analysis per call, calls on different threads are
// independent.
namespace vexo::analysis {

class TrackAnalyzer {
public:
    TrackAnalyzer() = delete;

    // Analyses the file at `path`. When `cancel` is given and becomes true, stops soon and
    // returns a result whose failure is "cancelled".
    [[nodiscard]] static TrackAnalysis analyzeFile(const std::filesystem::path& path,
                                                   const std::atomic<bool>* cancel = nullptr);

    // Analyses interleaved stereo frames already in memory (tests, benchmarks). REQUIRES:
    // `sampleRate` is 44100, 48000, 22050 or 24000.
    [[nodiscard]] static TrackAnalysis analyzeFrames(const float* stereoFrames, std::size_t frames, int sampleRate);
};

} // namespace vexo::analysis
