#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// Conversions between the UTF-8 of our strings and the UTF-16 that property lists store for
// text that is not ASCII. Malformed input never fails: each bad sequence becomes U+FFFD.
namespace vexo::plist::utf {

// UTF-16 big-endian bytes (an even number of them) to UTF-8.
std::string utf8FromUtf16BigEndian(std::span<const std::uint8_t> bytes);

// UTF-8 to UTF-16 code units.
std::vector<char16_t> utf16FromUtf8(std::string_view text);

// Appends the UTF-8 form of the code point `c` (at most U+10FFFF) to `out`.
void appendUtf8(std::string& out, char32_t c);

// Latin-1 bytes to UTF-8.
std::string utf8FromLatin1(std::span<const std::uint8_t> bytes);

} // namespace vexo::plist::utf
