#include "platform/plist/NumericText.h"

#include <charconv>
#include <cmath>
#include <limits>

namespace vexo::plist::text {
namespace {

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

std::string_view skipBlanks(std::string_view text) {
    std::size_t i = 0;
    while (i < text.size() && isBlank(text[i]))
        ++i;
    return text.substr(i);
}

// Splits an optional leading sign off `text`; returns true for a minus.
bool takeSign(std::string_view& text) {
    if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
        const bool negative = text.front() == '-';
        text.remove_prefix(1);
        return negative;
    }
    return false;
}

// Reads leading decimal digits, saturating at UINT64_MAX.
std::uint64_t scanMagnitude(std::string_view text) {
    std::uint64_t magnitude = 0;
    constexpr auto kMax = std::numeric_limits<std::uint64_t>::max();
    for (char c : text) {
        if (!isDigit(c))
            break;
        const auto digit = static_cast<std::uint64_t>(c - '0');
        if (magnitude > (kMax - digit) / 10)
            return kMax;
        magnitude = magnitude * 10 + digit;
    }
    return magnitude;
}

std::int64_t saturatedSigned(bool negative, std::uint64_t magnitude) {
    constexpr auto kMaxPositive = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    if (negative) {
        if (magnitude > kMaxPositive)
            return std::numeric_limits<std::int64_t>::min();
        return -static_cast<std::int64_t>(magnitude);
    }
    return magnitude > kMaxPositive ? std::numeric_limits<std::int64_t>::max() : static_cast<std::int64_t>(magnitude);
}

// The longest prefix of `text` that has the shape digits [. digits] [e [sign] digits],
// with at least one digit in the mantissa; empty when there is none.
std::string_view decimalPrefix(std::string_view text) {
    std::size_t i = 0;
    std::size_t mantissaDigits = 0;
    while (i < text.size() && isDigit(text[i])) {
        ++i;
        ++mantissaDigits;
    }
    if (i < text.size() && text[i] == '.') {
        ++i;
        while (i < text.size() && isDigit(text[i])) {
            ++i;
            ++mantissaDigits;
        }
    }
    if (mantissaDigits == 0)
        return {};
    if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
        std::size_t j = i + 1;
        if (j < text.size() && (text[j] == '+' || text[j] == '-'))
            ++j;
        if (j < text.size() && isDigit(text[j])) {
            while (j < text.size() && isDigit(text[j]))
                ++j;
            i = j;
        }
    }
    return text.substr(0, i);
}

template <typename Floating> Floating scanFloating(std::string_view text) {
    text = skipBlanks(text);
    const bool negative = takeSign(text);
    const std::string_view number = decimalPrefix(text);
    if (number.empty())
        return 0;
    Floating value = 0;
    const auto result =
        std::from_chars(number.data(), number.data() + number.size(), value, std::chars_format::general);
    if (result.ec == std::errc::result_out_of_range) {
        // from_chars leaves the value untouched on overflow and underflow; tell them apart
        // by the exponent's sign, as strtod's HUGE_VAL and 0 would.
        const bool tiny = number.find("e-") != std::string_view::npos || number.find("E-") != std::string_view::npos;
        value = tiny ? 0 : std::numeric_limits<Floating>::infinity();
    }
    return negative ? -value : value;
}

} // namespace

int hexDigitValue(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

std::int64_t scanInteger(std::string_view text) {
    text = skipBlanks(text);
    const bool negative = takeSign(text);
    return saturatedSigned(negative, scanMagnitude(text));
}

std::uint64_t scanUnsignedInteger(std::string_view text) {
    text = skipBlanks(text);
    const bool negative = takeSign(text);
    const std::uint64_t magnitude = scanMagnitude(text);
    if (!negative)
        return magnitude;
    return static_cast<std::uint64_t>(saturatedSigned(true, magnitude));
}

double scanDouble(std::string_view text) {
    return scanFloating<double>(text);
}

float scanFloat(std::string_view text) {
    return scanFloating<float>(text);
}

bool scanBool(std::string_view text) {
    text = skipBlanks(text);
    std::size_t i = 0;
    while (i < text.size() && (text[i] == '+' || text[i] == '-' || text[i] == '0'))
        ++i;
    if (i == text.size())
        return false;
    const char c = text[i];
    return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
}

std::optional<std::uint64_t> scanHexUnsigned(std::string_view text) {
    text = skipBlanks(text);
    if (text.size() >= 3 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X') && hexDigitValue(text[2]) >= 0)
        text.remove_prefix(2);
    std::uint64_t value = 0;
    bool anyDigit = false;
    bool overflow = false;
    for (char c : text) {
        const int digit = hexDigitValue(c);
        if (digit < 0)
            break;
        anyDigit = true;
        if (value > (std::numeric_limits<std::uint64_t>::max() >> 4))
            overflow = true;
        value = (value << 4) | static_cast<std::uint64_t>(digit);
    }
    if (!anyDigit)
        return std::nullopt;
    return overflow ? std::numeric_limits<std::uint64_t>::max() : value;
}

std::string describeInteger(std::int64_t value) {
    return std::to_string(value);
}

std::string describeUnsigned(std::uint64_t value) {
    return std::to_string(value);
}

std::string describeReal(double value, bool isSinglePrecision) {
    char buffer[64];
    const auto result = isSinglePrecision ? std::to_chars(buffer, buffer + sizeof buffer, static_cast<float>(value))
                                          : std::to_chars(buffer, buffer + sizeof buffer, value);
    return std::string(buffer, result.ptr);
}

} // namespace vexo::plist::text
