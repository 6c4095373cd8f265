#pragma once

#include <chrono>
#include <cstddef>
#include <string>

// Progress of long work on standard error: on a terminal one line redrawn in place at most ten
// times a second; elsewhere (a log, a pipe) a plain line at every tenth of the work.
// Thread: one thread at a time.
namespace vexo::library {

class TerminalProgress {
public:
    enum class Style { Off, InPlace, Lines };

    // Off when `quiet`, else InPlace when standard error is a terminal, else Lines.
    [[nodiscard]] static Style styleFor(bool quiet);

    explicit TerminalProgress(Style style)
        : m_style(style) {}
    ~TerminalProgress() { clear(); }
    TerminalProgress(const TerminalProgress&) = delete;
    TerminalProgress& operator=(const TerminalProgress&) = delete;

    [[nodiscard]] Style style() const { return m_style; }

    // InPlace only: replaces the line with `text`, unless the last one was drawn less than a
    // tenth of a second ago and this is not the `final` one.
    void redraw(const std::string& text, bool final);

    // Lines only: prints `text` as a line when `done` of `total` (REQUIRES: total > 0) has
    // reached a tenth not printed yet.
    void printAtTenth(std::size_t done, std::size_t total, const std::string& text);

    // Erases the line drawn in place, if any, so that what follows starts on a clean line.
    void clear();

    // "[#####.....]" of `width` cells, filled as `done` of `total` (REQUIRES: total > 0).
    [[nodiscard]] static std::string bar(std::size_t done, std::size_t total, int width);

private:
    Style m_style;
    bool m_drawn = false;
    std::chrono::steady_clock::time_point m_lastDrawn{};
    unsigned m_lastTenth = 11; // none printed yet
};

} // namespace vexo::library
