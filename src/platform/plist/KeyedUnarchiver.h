#pragma once

#include <cstdint>
#include <span>

#include "platform/base/Expected.h"
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
// to their size) yields an error, never a crash, a hang or an unbounded allocation.
class KeyedUnarchiver {
public:
    // The archive's root object, or why it could not be read: TooLarge beyond a limit (input
    // size, nesting, expansion), Unsupported for a property list that is no keyed archive,
    // InvalidData for the rest. Thread-safe.
    static Expected<Value> unarchive(std::span<const std::uint8_t> bytes);

    // The root object, or nothing with a debug log line saying why.
    static Value unarchiveObject(std::span<const std::uint8_t> bytes);
};

} // namespace vexo::plist
