#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// A range of list positions as the host platform has it (NSRange), and its text form
// "{location, length}" that the phone writes.
namespace vexo::model {

struct Range {
    std::uint64_t location = 0;
    std::uint64_t length = 0;
    friend bool operator==(const Range&, const Range&) = default;
};

// The first decimal integer of `text` as the location, the second as the length; a missing
// integer reads as 0, so unreadable text gives {0, 0}. Integers beyond 64 bits saturate.
Range rangeFromString(std::string_view text);

// "{location, length}".
std::string stringFromRange(Range range);

} // namespace vexo::model
