#include "face/QrCode.h"

#include <memory>
#include <string>

#include <qrencode.h>

namespace vexo::face {

namespace {

constexpr int kQuietZone = 4;

struct FreeCode {
    void operator()(QRcode* code) const { QRcode_free(code); }
};

} // namespace

std::optional<QrCode> QrCode::encode(std::string_view text) {
    std::unique_ptr<QRcode, FreeCode> code(QRcode_encodeData(
        static_cast<int>(text.size()), reinterpret_cast<const unsigned char*>(text.data()), 0, QR_ECLEVEL_L));
    if (!code || code->version > kMaximumVersion)
        return std::nullopt;
    QrCode result;
    result.m_version = code->version;
    result.m_size = code->width;
    result.m_modules.resize(static_cast<std::size_t>(code->width * code->width));
    for (std::size_t i = 0; i < result.m_modules.size(); ++i)
        result.m_modules[i] = code->data[i] & 1;
    return result;
}

std::string QrCode::terminalText() const {
    // A module is dark in the code; on the terminal it is drawn as the absence of a block, so
    // the blocks (light) form the background and quiet zone, as on paper.
    auto light = [this](int x, int y) { return x < 0 || y < 0 || x >= m_size || y >= m_size || !dark(x, y); };
    std::string text;
    for (int y = -kQuietZone; y < m_size + kQuietZone; y += 2) {
        for (int x = -kQuietZone; x < m_size + kQuietZone; ++x) {
            const bool top = light(x, y);
            const bool bottom = light(x, y + 1);
            text += top && bottom ? "\u2588" : top ? "\u2580" : bottom ? "\u2584" : " ";
        }
        text += '\n';
    }
    return text;
}

std::string QrCode::svg() const {
    const int side = m_size + 2 * kQuietZone;
    std::string path;
    for (int y = 0; y < m_size; ++y) {
        for (int x = 0; x < m_size; ++x) {
            if (dark(x, y))
                path += "M" + std::to_string(x + kQuietZone) + " " + std::to_string(y + kQuietZone) + "h1v1h-1z";
        }
    }
    return "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " + std::to_string(side) + " " +
           std::to_string(side) + "\" shape-rendering=\"crispEdges\"><rect width=\"" + std::to_string(side) +
           "\" height=\"" + std::to_string(side) + "\" fill=\"#fff\"/><path fill=\"#000\" d=\"" + path + "\"/></svg>";
}

} // namespace vexo::face
