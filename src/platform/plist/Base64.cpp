#include "platform/plist/Base64.h"

#include <array>

namespace vexo::plist::base64 {
namespace {

constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::array<std::int8_t, 256> makeDecodeTable() {
    std::array<std::int8_t, 256> table{};
    table.fill(-1);
    for (std::size_t i = 0; i < kAlphabet.size(); ++i)
        table[static_cast<unsigned char>(kAlphabet[i])] = static_cast<std::int8_t>(i);
    return table;
}

constexpr auto kDecodeTable = makeDecodeTable();

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

} // namespace

std::string encode(std::span<const std::uint8_t> bytes) {
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    std::size_t i = 0;
    for (; i + 3 <= bytes.size(); i += 3) {
        const std::uint32_t group = (bytes[i] << 16) | (bytes[i + 1] << 8) | bytes[i + 2];
        text.push_back(kAlphabet[(group >> 18) & 63]);
        text.push_back(kAlphabet[(group >> 12) & 63]);
        text.push_back(kAlphabet[(group >> 6) & 63]);
        text.push_back(kAlphabet[group & 63]);
    }
    const std::size_t rest = bytes.size() - i;
    if (rest > 0) {
        std::uint32_t group = bytes[i] << 16;
        if (rest == 2)
            group |= bytes[i + 1] << 8;
        text.push_back(kAlphabet[(group >> 18) & 63]);
        text.push_back(kAlphabet[(group >> 12) & 63]);
        text.push_back(rest == 2 ? kAlphabet[(group >> 6) & 63] : '=');
        text.push_back('=');
    }
    return text;
}

std::optional<std::vector<std::uint8_t>> decode(std::string_view text) {
    std::vector<std::uint8_t> bytes;
    bytes.reserve(text.size() / 4 * 3);
    std::uint32_t group = 0;
    int symbols = 0;
    int padding = 0;
    for (char c : text) {
        if (isSpace(c))
            continue;
        if (c == '=') {
            ++padding;
            if (symbols + padding > 4 || symbols < 2)
                return std::nullopt;
            continue;
        }
        const std::int8_t sextet = kDecodeTable[static_cast<unsigned char>(c)];
        if (sextet < 0 || padding > 0)
            return std::nullopt;
        group = (group << 6) | static_cast<std::uint32_t>(sextet);
        if (++symbols == 4) {
            bytes.push_back(static_cast<std::uint8_t>(group >> 16));
            bytes.push_back(static_cast<std::uint8_t>(group >> 8));
            bytes.push_back(static_cast<std::uint8_t>(group));
            group = 0;
            symbols = 0;
        }
    }
    if (symbols == 0)
        return padding == 0 ? std::optional(std::move(bytes)) : std::nullopt;
    if (symbols == 1 || (padding != 0 && symbols + padding != 4))
        return std::nullopt;
    group <<= 6 * (4 - symbols);
    bytes.push_back(static_cast<std::uint8_t>(group >> 16));
    if (symbols == 3)
        bytes.push_back(static_cast<std::uint8_t>(group >> 8));
    return bytes;
}

} // namespace vexo::plist::base64
