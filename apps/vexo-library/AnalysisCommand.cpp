#include "AnalysisCommand.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <string>
#include <unistd.h>

namespace vexo::library {
namespace {

constexpr int kBarWidth = 30;

class AnalysisProgress {
public:
    explicit AnalysisProgress(bool quiet) : m_quiet(quiet), m_terminal(::isatty(STDERR_FILENO) == 1) {}
    ~AnalysisProgress() { clear(); }

    void update(const analysis::LibraryAnalyzer::Progress& progress) {
        if (m_quiet || progress.songsTotal == 0)
            return;
        const auto percent = static_cast<unsigned>(progress.songsDone * 100 / progress.songsTotal);
        if (!m_terminal) {
            if (percent / 10 != m_lastTenth) {
                std::fprintf(stderr, "analysed %zu of %zu songs\n", progress.songsDone, progress.songsTotal);
                std::fflush(stderr);
                m_lastTenth = percent / 10;
            }
            return;
        }
        const auto now = std::chrono::steady_clock::now();
        if (progress.songsDone != progress.songsTotal && now - m_lastDrawn < std::chrono::milliseconds(100))
            return;
        m_lastDrawn = now;
        const int filled = static_cast<int>(progress.songsDone * kBarWidth / progress.songsTotal);
        std::string bar(static_cast<std::size_t>(filled), '#');
        bar.resize(kBarWidth, '.');
        std::fprintf(stderr, "\r\033[Kanalysing [%s] %zu/%zu (%u%%)", bar.c_str(), progress.songsDone,
                     progress.songsTotal, percent);
        std::fflush(stderr);
        m_drawn = true;
    }

    void clear() {
        if (m_drawn)
            std::fputs("\r\033[K", stderr);
        m_drawn = false;
    }

private:
    bool m_quiet;
    bool m_terminal;
    bool m_drawn = false;
    std::chrono::steady_clock::time_point m_lastDrawn{};
    unsigned m_lastTenth = 11;
};

} // namespace

int runAnalysis(const std::filesystem::path& indexPath, const analysis::LibraryAnalyzer::Options& options, bool quiet) {
    AnalysisProgress line(quiet);
    std::string error;
    const auto summary = analysis::LibraryAnalyzer::analyze(
        indexPath, options, [&](const analysis::LibraryAnalyzer::Progress& progress) { line.update(progress); },
        &error);
    line.clear();
    if (!summary) {
        std::cerr << "vexo-library: " << error << "\n";
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
