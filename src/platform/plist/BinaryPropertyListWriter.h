#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "platform/plist/Value.h"

// Builds a binary property list ("bplist00") object by object, the way the host platform
// writes them: minimal integer widths, 8-byte signed integers for negative values, 16 bytes
// for unsigned values above the signed range, 4-byte reals for single-precision values,
// ASCII strings where possible and UTF-16 otherwise.
//
// Objects are referred to by the Reference an add call returns. A collection may refer to
// any object added before finish(), in any order. Not thread-safe; one list per writer.
namespace vexo::plist {

class BinaryPropertyListWriter {
public:
    using Reference = std::uint32_t;

    BinaryPropertyListWriter();
    // Writes into `buffer`'s memory; its contents are discarded.
    explicit BinaryPropertyListWriter(Data&& buffer);

    Reference addBoolean(bool value);
    Reference addInteger(Integer value);
    Reference addReal(Real value);
    Reference addDate(Date value);
    Reference addData(std::span<const std::uint8_t> bytes);
    // REQUIRES: nothing; invalid UTF-8 is written as U+FFFD.
    Reference addString(std::string_view utf8);
    Reference addUid(std::uint64_t uid);
    Reference addArray(std::span<const Reference> elements);
    // REQUIRES: keys.size() == values.size().
    Reference addDictionary(std::span<const Reference> keys, std::span<const Reference> values);

    // Lays out the collections, the offset table and the trailer with `top` as the top
    // object, and returns the whole list. The writer is spent afterwards.
    [[nodiscard]] Data finish(Reference top);

private:
    struct PendingCollection {
        Reference self;
        std::uint8_t markerType;
        std::size_t firstReference;
        std::size_t referenceCount;
        std::size_t count;
    };

    Reference beginObject();
    void writeMarker(std::uint8_t type, std::uint64_t count);
    void writeBigEndian(std::uint64_t value, unsigned size);

    Data m_bytes;
    std::vector<std::uint64_t> m_offsets;
    std::vector<PendingCollection> m_collections;
    std::vector<Reference> m_collectionReferences;
};

} // namespace vexo::plist
