#include "platform/ipc/NotifyName.h"

#include <cstdint>

namespace vexo::ipc {
namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";

// Room left for the prefix of a long name: "~" and 16 hexadecimal digits follow it.
constexpr std::size_t kPrefixLength = NotifyName::kMaximumLength - 17;

bool isKept(unsigned char byte, bool leading) {
    if ((byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') || (byte >= '0' && byte <= '9'))
        return true;
    if (byte == '-' || byte == '_')
        return true;
    // A leading dot would make ".", ".." and hidden files.
    return byte == '.' && !leading;
}

// FNV-1a: fixed forever, since other processes must compute the same value.
std::uint64_t hashOf(std::string_view text) {
    std::uint64_t hash = 14695981039346656037ull;
    for (const char c : text) {
        hash ^= static_cast<unsigned char>(c);
        hash *= 1099511628211ull;
    }
    return hash;
}

} // namespace

std::string NotifyName::fileName(std::string_view name) {
    if (name.empty())
        return "%";
    std::string escaped;
    std::size_t prefixEnd = 0; // length of the escaped prefix that fits kPrefixLength
    for (std::size_t i = 0; i < name.size(); ++i) {
        const auto byte = static_cast<unsigned char>(name[i]);
        if (isKept(byte, i == 0)) {
            escaped += static_cast<char>(byte);
        } else {
            escaped += '%';
            escaped += kHexDigits[byte >> 4];
            escaped += kHexDigits[byte & 0xF];
        }
        if (escaped.size() <= kPrefixLength)
            prefixEnd = escaped.size();
    }
    if (escaped.size() <= kMaximumLength)
        return escaped;

    escaped.resize(prefixEnd);
    escaped += '~';
    const std::uint64_t hash = hashOf(name);
    for (int shift = 60; shift >= 0; shift -= 4)
        escaped += kHexDigits[(hash >> shift) & 0xF];
    return escaped;
}

} // namespace vexo::ipc
