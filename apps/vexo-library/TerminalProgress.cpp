#include "TerminalProgress.h"

#include <cstdio>

#include <unistd.h>

namespace vexo::library {

TerminalProgress::Style TerminalProgress::styleFor(bool quiet) {
    if (quiet)
        return Style::Off;
    return ::isatty(STDERR_FILENO) == 1 ? Style::InPlace : Style::Lines;
}

void TerminalProgress::redraw(const std::string& text, bool final) {
    if (m_style != Style::InPlace)
        return;
    const auto now = std::chrono::steady_clock::now();
    if (!final && now - m_lastDrawn < std::chrono::milliseconds(100))
        return;
    m_lastDrawn = now;
    std::fprintf(stderr, "\r\033[K%s", text.c_str());
    std::fflush(stderr);
    m_drawn = true;
}

void TerminalProgress::printAtTenth(std::size_t done, std::size_t total, const std::string& text) {
    if (m_style != Style::Lines)
        return;
    const auto tenth = static_cast<unsigned>(done * 10 / total);
    if (tenth == m_lastTenth)
        return;
    std::fprintf(stderr, "%s\n", text.c_str());
    std::fflush(stderr);
    m_lastTenth = tenth;
}

void TerminalProgress::clear() {
    if (m_drawn)
        std::fputs("\r\033[K", stderr);
    m_drawn = false;
}

std::string TerminalProgress::bar(std::size_t done, std::size_t total, int width) {
    std::string cells(done * static_cast<std::size_t>(width) / total, '#');
    cells.resize(static_cast<std::size_t>(width), '.');
    return "[" + cells + "]";
}

} // namespace vexo::library
