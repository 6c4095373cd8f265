#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// A QR code (libqrencode, error correction level L, byte mode) no larger than version 4
// (33 x 33 modules), which every phone camera reads from a terminal or a screen, and two
// ways to draw it. A value: copy freely, any thread.
namespace vexo::face {

class QrCode {
public:
    static constexpr int kMaximumVersion = 4;

    // Nothing when `text` does not fit in version kMaximumVersion (78 bytes at level L).
    [[nodiscard]] static std::optional<QrCode> encode(std::string_view text);

    [[nodiscard]] int version() const { return m_version; }
    [[nodiscard]] int size() const { return m_size; }
    [[nodiscard]] bool dark(int x, int y) const { return m_modules[static_cast<std::size_t>(y * m_size + x)]; }

    // Lines of Unicode half blocks, two rows of modules per line, light on dark as a terminal
    // shows text, with the four-module quiet zone that readers need.
    [[nodiscard]] std::string terminalText() const;
    // An SVG picture, one unit per module, with the quiet zone.
    [[nodiscard]] std::string svg() const;

private:
    int m_version = 0;
    int m_size = 0;
    std::vector<bool> m_modules;
};

} // namespace vexo::face
