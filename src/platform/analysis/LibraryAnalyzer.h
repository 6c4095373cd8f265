#pragma once

#include <atomic>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/base/Expected.h"

// Analyses the songs of a media library index that need it (never analysed, analysed by an
// older analyser, or changed on disk since) on a pool of worker threads, one song per
// thread at a time, and stores each result in the index as it comes. What was stored stays
// when the run is cancelled or a song fails: a bad song gets its reason stored and the run
// goes on.
namespace vexo::analysis {

class LibraryAnalyzer {
public:
    struct Options {
        // Analyse every present song again, whatever is stored.
        bool force = false;
        // Only songs that are, or lie in, these files or folders; all when empty.
        std::vector<std::filesystem::path> only;
        // Worker threads; 0: one per core of the machine.
        unsigned threads = 0;
        // Read between songs and during each; once true, workers stop soon, keeping what was
        // stored.
        const std::atomic<bool>* cancel = nullptr;
    };

    struct Progress {
        std::size_t songsDone = 0;
        std::size_t songsTotal = 0;
        // The song just finished.
        std::filesystem::path path;
    };

    struct Problem {
        std::filesystem::path path;
        std::string reason;
    };

    struct Summary {
        std::size_t songs = 0;
        // Of `songs`, those that got a tempo and a key.
        std::size_t complete = 0;
        // Seconds of audio analysed, and of wall-clock time taken.
        double audioSeconds = 0;
        double seconds = 0;
        unsigned threads = 0;
        bool cancelled = false;
        // Songs analysed only in part or not at all, with the reason stored.
        std::vector<Problem> problems;
    };

    // Runs the analysis on the index at `indexPath`, calling `progress` (when set) on the
    // calling thread after each song. Fails when the index cannot be opened or written (as
    // media::AnalysisStore); a cancelled run is a summary, with what was stored.
    [[nodiscard]] static Expected<Summary> analyze(const std::filesystem::path& indexPath, const Options& options,
                                                   const std::function<void(const Progress&)>& progress);

    // Worker threads for `requested` (0: the machine's cores, at least 1).
    [[nodiscard]] static unsigned threadCount(unsigned requested);
};

} // namespace vexo::analysis
