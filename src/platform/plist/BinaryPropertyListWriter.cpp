#include "platform/plist/BinaryPropertyListWriter.h"

#include <bit>
#include <cassert>
#include <cstring>

#include "platform/plist/Utf.h"

namespace vexo::plist {
namespace {

// Bytes needed for `value` among the widths 1, 2, 4 and 8.
unsigned widthFor(std::uint64_t value) {
    if (value <= 0xFF)
        return 1;
    if (value <= 0xFFFF)
        return 2;
    if (value <= 0xFFFFFFFF)
        return 4;
    return 8;
}

unsigned log2Width(unsigned width) {
    return static_cast<unsigned>(std::countr_zero(width));
}

bool isAscii(std::string_view text) {
    for (char c : text) {
        if (static_cast<unsigned char>(c) >= 0x80)
            return false;
    }
    return true;
}

} // namespace

BinaryPropertyListWriter::BinaryPropertyListWriter()
    : BinaryPropertyListWriter(Data()) {}

BinaryPropertyListWriter::BinaryPropertyListWriter(Data&& buffer)
    : m_bytes(std::move(buffer)) {
    constexpr std::string_view kSignature = "bplist00";
    m_bytes.reserve(256);
    m_bytes.resize(kSignature.size());
    std::memcpy(m_bytes.data(), kSignature.data(), kSignature.size());
}

BinaryPropertyListWriter::Reference BinaryPropertyListWriter::beginObject() {
    m_offsets.push_back(m_bytes.size());
    return static_cast<Reference>(m_offsets.size() - 1);
}

void BinaryPropertyListWriter::writeBigEndian(std::uint64_t value, unsigned size) {
    for (unsigned i = size; i-- > 0;)
        m_bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

void BinaryPropertyListWriter::writeMarker(std::uint8_t type, std::uint64_t count) {
    if (count < 0xF) {
        m_bytes.push_back(static_cast<std::uint8_t>((type << 4) | count));
        return;
    }
    m_bytes.push_back(static_cast<std::uint8_t>((type << 4) | 0xF));
    const unsigned width = widthFor(count);
    m_bytes.push_back(static_cast<std::uint8_t>(0x10 | log2Width(width)));
    writeBigEndian(count, width);
}

BinaryPropertyListWriter::Reference BinaryPropertyListWriter::addBoolean(bool value) {
    const Reference self = beginObject();
    m_bytes.push_back(value ? 0x09 : 0x08);
    return self;
}

BinaryPropertyListWriter::Reference BinaryPropertyListWriter::addInteger(Integer value) {
    const Reference self = beginObject();
    if (value.isUnsigned) {
        m_bytes.push_back(0x14);
        writeBigEndian(0, 8);
        writeBigEndian(value.bits, 8);
    } else if (value.asSigned() < 0) {
        m_bytes.push_back(0x13);
        writeBigEndian(value.bits, 8);
    } else {
        const unsigned width = widthFor(value.bits);
        m_bytes.push_back(static_cast<std::uint8_t>(0x10 | log2Width(width)));
        writeBigEndian(value.bits, width);
    }
    return self;
}

BinaryPropertyListWriter::Reference BinaryPropertyListWriter::addReal(Real value) {
    const Reference self = beginObject();
    if (value.isSinglePrecision) {
        m_bytes.push_back(0x22);
        writeBigEndian(std::bit_cast<std::uint32_t>(static_cast<float>(value.value)), 4);
    } else {
        m_bytes.push_back(0x23);
        writeBigEndian(std::bit_cast<std::uint64_t>(value.value), 8);
    }
    return self;
}

BinaryPropertyListWriter::Reference BinaryPropertyListWriter::addDate(Date value) {
    const Reference self = beginObject();
    m_bytes.push_back(0x33);
    writeBigEndian(std::bit_cast<std::uint64_t>(value.secondsSinceReferenceDate), 8);
    return self;
}

BinaryPropertyListWriter::Reference BinaryPropertyListWriter::addData(std::span<const std::uint8_t> bytes) {
    const Reference self = beginObject();
    writeMarker(0x4, bytes.size());
    m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end());
    return self;
}

BinaryPropertyListWriter::Reference BinaryPropertyListWriter::addString(std::string_view utf8) {
    const Reference self = beginObject();
    if (isAscii(utf8)) {
        writeMarker(0x5, utf8.size());
        m_bytes.insert(m_bytes.end(), utf8.begin(), utf8.end());
        return self;
    }
    const std::vector<char16_t> units = utf::utf16FromUtf8(utf8);
    writeMarker(0x6, units.size());
    for (char16_t unit : units)
        writeBigEndian(unit, 2);
    return self;
}

BinaryPropertyListWriter::Reference BinaryPropertyListWriter::addUid(std::uint64_t uid) {
    const Reference self = beginObject();
    const unsigned width = widthFor(uid);
    m_bytes.push_back(static_cast<std::uint8_t>(0x80 | (width - 1)));
    writeBigEndian(uid, width);
    return self;
}

BinaryPropertyListWriter::Reference BinaryPropertyListWriter::addArray(std::span<const Reference> elements) {
    const Reference self = beginObject();
    m_collections.push_back({self, 0xA, m_collectionReferences.size(), elements.size(), elements.size()});
    m_collectionReferences.insert(m_collectionReferences.end(), elements.begin(), elements.end());
    return self;
}

BinaryPropertyListWriter::Reference BinaryPropertyListWriter::addDictionary(std::span<const Reference> keys,
                                                                            std::span<const Reference> values) {
    assert(keys.size() == values.size());
    const Reference self = beginObject();
    m_collections.push_back({self, 0xD, m_collectionReferences.size(), 2 * keys.size(), keys.size()});
    m_collectionReferences.insert(m_collectionReferences.end(), keys.begin(), keys.end());
    m_collectionReferences.insert(m_collectionReferences.end(), values.begin(), values.end());
    return self;
}

Data BinaryPropertyListWriter::finish(Reference top) {
    // Collections are written last because the width of a reference depends on how many
    // objects there are; the offset table lets objects sit in any order.
    const unsigned referenceSize = widthFor(m_offsets.empty() ? 0 : m_offsets.size() - 1);
    for (const PendingCollection& collection : m_collections) {
        m_offsets[collection.self] = m_bytes.size();
        writeMarker(collection.markerType, collection.count);
        for (std::size_t i = 0; i < collection.referenceCount; ++i)
            writeBigEndian(m_collectionReferences[collection.firstReference + i], referenceSize);
    }

    const std::uint64_t tableOffset = m_bytes.size();
    const unsigned offsetSize = widthFor(tableOffset);
    for (std::uint64_t offset : m_offsets)
        writeBigEndian(offset, offsetSize);

    m_bytes.insert(m_bytes.end(), 6, 0);
    m_bytes.push_back(static_cast<std::uint8_t>(offsetSize));
    m_bytes.push_back(static_cast<std::uint8_t>(referenceSize));
    writeBigEndian(m_offsets.size(), 8);
    writeBigEndian(top, 8);
    writeBigEndian(tableOffset, 8);
    return std::move(m_bytes);
}

} // namespace vexo::plist
