#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "platform/plist/Value.h"

namespace vexo::plist {

// Decodes keyed archives written by the host platform's NSKeyedArchiver (binary, or XML as
// some tools write them) into values.
//
// NSDictionary, NSArray, NSString, NSData (with their mutable twins) and NSDate are expanded;
// an object of any other class decodes as Value::unknownObject(its class name), which reads
// as nothing. Malformed input of any kind (truncated or corrupt bytes, UIDs out of range,
// objects that contain themselves, nesting deeper than archive::kMaxNestingDepth, absurd
// counts, wrong class descriptors, archives that would expand beyond a budget proportional
// to their size) yields nothing, never a crash, a hang or an unbounded allocation.
class KeyedUnarchiver {
public:
    struct Result {
        Value root;
        // Why decoding failed; empty on success.
        std::string error;
        bool ok() const { return error.empty(); }
    };

    // The archive's root object, or the reason it could not be read. Thread-safe.
    static Result unarchive(std::span<const std::uint8_t> bytes);

    // The root object, or nothing with a debug log line saying why.
    static Value unarchiveObject(std::span<const std::uint8_t> bytes);
};

} // namespace vexo::plist
