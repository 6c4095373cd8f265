#include "platform/plist/Utf.h"

namespace vexo::plist::utf {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool isHighSurrogate(char32_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
bool isLowSurrogate(char32_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

// Decodes one UTF-8 sequence at `text[i]`, advancing `i`; U+FFFD for a malformed one,
// consuming one byte so that decoding resynchronises at the next.
char32_t decodeUtf8(std::string_view text, std::size_t& i) {
    const auto lead = static_cast<unsigned char>(text[i++]);
    if (lead < 0x80)
        return lead;
    int extra = 0;
    char32_t c = 0;
    char32_t minimum = 0;
    if ((lead & 0xE0) == 0xC0) {
        extra = 1, c = lead & 0x1F, minimum = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
        extra = 2, c = lead & 0x0F, minimum = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
        extra = 3, c = lead & 0x07, minimum = 0x10000;
    } else {
        return kReplacement;
    }
    if (i + static_cast<std::size_t>(extra) > text.size())
        return kReplacement;
    for (int k = 0; k < extra; ++k) {
        const auto next = static_cast<unsigned char>(text[i + static_cast<std::size_t>(k)]);
        if ((next & 0xC0) != 0x80)
            return kReplacement;
        c = (c << 6) | (next & 0x3F);
    }
    if (c < minimum || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF))
        return kReplacement;
    i += static_cast<std::size_t>(extra);
    return c;
}

} // namespace

void appendUtf8(std::string& out, char32_t c) {
    if (c < 0x80) {
        out.push_back(static_cast<char>(c));
    } else if (c < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (c >> 6)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else if (c < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (c >> 12)));
        out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (c >> 18)));
        out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    }
}

std::string utf8FromUtf16BigEndian(std::span<const std::uint8_t> bytes) {
    std::string out;
    out.reserve(bytes.size());
    const std::size_t units = bytes.size() / 2;
    auto unitAt = [&](std::size_t k) -> char32_t {
        return static_cast<char32_t>((bytes[2 * k] << 8) | bytes[2 * k + 1]);
    };
    for (std::size_t k = 0; k < units; ++k) {
        const char32_t unit = unitAt(k);
        if (isHighSurrogate(unit) && k + 1 < units && isLowSurrogate(unitAt(k + 1))) {
            appendUtf8(out, 0x10000 + ((unit - 0xD800) << 10) + (unitAt(k + 1) - 0xDC00));
            ++k;
        } else if (isHighSurrogate(unit) || isLowSurrogate(unit)) {
            appendUtf8(out, kReplacement);
        } else {
            appendUtf8(out, unit);
        }
    }
    return out;
}

std::vector<char16_t> utf16FromUtf8(std::string_view text) {
    std::vector<char16_t> units;
    units.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        const char32_t c = decodeUtf8(text, i);
        if (c >= 0x10000) {
            units.push_back(static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10)));
            units.push_back(static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF)));
        } else {
            units.push_back(static_cast<char16_t>(c));
        }
    }
    return units;
}

std::string utf8FromLatin1(std::span<const std::uint8_t> bytes) {
    std::string out;
    out.reserve(bytes.size());
    for (std::uint8_t byte : bytes)
        appendUtf8(out, byte);
    return out;
}

} // namespace vexo::plist::utf
