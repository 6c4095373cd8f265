#include "AnalysisCommand.h"

#include <csignal>
#include <cstdio>
#include <iostream>
#include <string>

#include "TerminalProgress.h"

namespace vexo::library {
namespace {

constexpr int kBarWidth = 30;

void showProgress(TerminalProgress& line, const analysis::LibraryAnalyzer::Progress& progress) {
    const std::size_t done = progress.songsDone;
    const std::size_t total = progress.songsTotal;
    if (total == 0)
        return;
    line.printAtTenth(done, total, "analysed " + std::to_string(done) + " of " + std::to_string(total) + " songs");
    line.redraw("analysing " + TerminalProgress::bar(done, total, kBarWidth) + " " + std::to_string(done) + "/" +
                    std::to_string(total) + " (" + std::to_string(done * 100 / total) + "%)",
                done == total);
}

} // namespace

int runAnalysis(const std::filesystem::path& indexPath, const analysis::LibraryAnalyzer::Options& options, bool quiet) {
    TerminalProgress line(TerminalProgress::styleFor(quiet));
    const auto summary = analysis::LibraryAnalyzer::analyze(
        indexPath, options, [&](const analysis::LibraryAnalyzer::Progress& progress) { showProgress(line, progress); });
    line.clear();
    if (!summary) {
        std::cerr << "vexo-library: " << summary.error().message() << "\n";
        return 1;
    }
    for (const auto& problem : summary->problems)
        std::cerr << "vexo-library: analysed in part: " << problem.path.string() << ": " << problem.reason << "\n";
    if (summary->songs == 0 && !summary->cancelled) {
        std::cout << "analysis: no song needs analysing\n";
        return 0;
    }
    char figures[160];
    const double speed = summary->seconds > 0 ? summary->audioSeconds / summary->seconds : 0;
    std::snprintf(figures, sizeof figures, "%.1f s of audio in %.2f s on %u thread%s (%.0fx real time)",
                  summary->audioSeconds, summary->seconds, summary->threads, summary->threads == 1 ? "" : "s", speed);
    std::cout << "analysed " << summary->songs << (summary->songs == 1 ? " song" : " songs") << ": "
              << summary->complete << " with tempo and key, " << summary->problems.size() << " in part; " << figures
              << "\n";
    if (summary->cancelled) {
        std::cout << "interrupted: the songs finished are kept; the others are analysed next time\n";
        return 128 + SIGINT;
    }
    return 0;
}

} // namespace vexo::library
