#pragma once

#include <cstdint>
#include <span>

#include "platform/base/Expected.h"
#include "platform/plist/Value.h"

namespace vexo::plist {

// Reads XML property lists, the text form that some tools write keyed archives in, by
// converting them to the binary form so that one reader serves both. A dictionary whose only
// key is "CF$UID" with an integer value becomes a UID, as the host platform reads it.
//
// The reader is iterative and bounded: nesting deeper than archive::kMaxNestingDepth, unknown
// elements, malformed numbers, dates or base64 yield an error: TooLarge for the nesting,
// InvalidData for the rest.
class XmlPropertyList {
public:
    // True when `bytes` start (after an optional byte-order mark and blanks) like an XML
    // property list: "<?xml", "<!DOCTYPE plist" or "<plist".
    static bool hasSignature(std::span<const std::uint8_t> bytes);

    // The same property list in binary form, or why it is not one.
    static Expected<Data> toBinary(std::span<const std::uint8_t> bytes);
};

} // namespace vexo::plist
