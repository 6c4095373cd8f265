#pragma once

#include <optional>
#include <string>

#include "platform/base/Error.h"

// What analysing one song found. Values a song cannot give (no tempo in a silent file, no
// key in a file too short to tell) are absent; `failure` then says why in a few words.
namespace vexo::analysis {

// Raised whenever the analyser changes in a way that changes its results, so that songs
// analysed by an older one are analysed again.
inline constexpr int kAnalysisVersion = 2;

// Songs shorter or longer than these get no tempo or key.
inline constexpr double kShortestAnalysedSeconds = 5;
inline constexpr double kLongestAnalysedSeconds = 2 * 60 * 60;

struct TrackAnalysis {
    // Beats per minute, rounded to 0.01.
    std::optional<double> beatsPerMinute;
    // Where the first beat of the constant-tempo grid lies, in seconds from the start; the
    // grid's beats are firstBeatSeconds + n * 60 / beatsPerMinute. Present with the tempo.
    std::optional<double> firstBeatSeconds;
    // The musical key in Camelot notation ("8A" is A minor, "8B" C major; CamelotKey.h).
    std::optional<std::string> key;
    // Integrated loudness (EBU R128) in LUFS and true peak in dBTP, of the stereo signal as
    // the engine plays it (a mono file counts on both channels).
    std::optional<double> loudnessLUFS;
    std::optional<double> truePeakDBTP;
    // Seconds decoded.
    double durationSeconds = 0;
    // Nothing when the song was analysed whole; else why not, in a short sentence stored
    // with the analysis: Unsupported for a song without what is measured ("silent", "shorter
    // than 5 s", "no steady beat found"), TooLarge for "longer than 2 h", Cancelled, or the
    // decoder's error ("cannot decode ...").
    std::optional<Error> failure;
};

} // namespace vexo::analysis
