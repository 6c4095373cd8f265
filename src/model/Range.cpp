#include "model/Range.h"

#include <limits>

namespace vexo::model {
namespace {

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// Reads the next run of decimal digits at or after `position`; 0 when there is none.
std::uint64_t nextInteger(std::string_view text, std::size_t& position) {
    while (position < text.size() && !isDigit(text[position]))
        ++position;
    std::uint64_t value = 0;
    constexpr auto kMax = std::numeric_limits<std::uint64_t>::max();
    for (; position < text.size() && isDigit(text[position]); ++position) {
        const auto digit = static_cast<std::uint64_t>(text[position] - '0');
        value = value > (kMax - digit) / 10 ? kMax : value * 10 + digit;
    }
    return value;
}

} // namespace

Range rangeFromString(std::string_view text) {
    std::size_t position = 0;
    Range range;
    range.location = nextInteger(text, position);
    range.length = nextInteger(text, position);
    return range;
}

std::string stringFromRange(Range range) {
    return "{" + std::to_string(range.location) + ", " + std::to_string(range.length) + "}";
}

} // namespace vexo::model
