#include "platform/watchkit/SnapshotFormat.h"

#include <cstdint>

namespace vexo::watchkit::snapshot {

nlohmann::json color(const std::optional<Color>& color) {
    if (!color)
        return nullptr;
    return {{"red", color->red}, {"green", color->green}, {"blue", color->blue}, {"alpha", color->alpha}};
}

nlohmann::json rect(const graphics::Rect& rect) {
    return {{"x", rect.x}, {"y", rect.y}, {"width", rect.width}, {"height", rect.height}};
}

nlohmann::json text(const std::optional<std::string>& text) {
    if (!text)
        return nullptr;
    const std::string& in = *text;
    std::string out;
    out.reserve(in.size());
    std::size_t i = 0;
    while (i < in.size()) {
        auto byte = static_cast<unsigned char>(in[i]);
        std::size_t length = byte < 0x80           ? 1
                             : (byte >> 5) == 0x6  ? 2
                             : (byte >> 4) == 0xe  ? 3
                             : (byte >> 3) == 0x1e ? 4
                                                   : 0;
        bool valid = length > 0 && i + length <= in.size();
        std::uint32_t code = length == 1 ? byte : length == 2 ? byte & 0x1f : length == 3 ? byte & 0x0f : byte & 0x07;
        for (std::size_t k = 1; valid && k < length; ++k) {
            auto next = static_cast<unsigned char>(in[i + k]);
            valid = (next & 0xc0) == 0x80;
            code = (code << 6) | (next & 0x3f);
        }
        // Overlong forms, surrogates and values beyond Unicode are malformed too.
        static constexpr std::uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
        valid = valid && code >= kSmallest[length] && code <= 0x10ffff && (code < 0xd800 || code > 0xdfff);
        if (valid) {
            out.append(in, i, length);
            i += length;
        } else {
            out += "\xEF\xBF\xBD";
            ++i;
        }
    }
    return out;
}

double secondsSince1970(std::chrono::system_clock::time_point time) {
    return std::chrono::duration<double>(time.time_since_epoch()).count();
}

} // namespace vexo::watchkit::snapshot
