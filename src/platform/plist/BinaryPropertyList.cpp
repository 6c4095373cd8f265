#include "platform/plist/BinaryPropertyList.h"

#include <bit>
#include <cstring>

#include "platform/plist/Utf.h"

namespace vexo::plist {
namespace {

constexpr std::string_view kSignature = "bplist00";
constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kTrailerSize = 32;

// Reads a big-endian unsigned integer of `size` bytes (1 to 8).
std::uint64_t readBigEndian(const std::uint8_t* at, unsigned size) {
    std::uint64_t value = 0;
    for (unsigned i = 0; i < size; ++i)
        value = (value << 8) | at[i];
    return value;
}

} // namespace

bool BinaryPropertyList::hasSignature(std::span<const std::uint8_t> bytes) {
    return bytes.size() >= kSignature.size() && std::memcmp(bytes.data(), kSignature.data(), kSignature.size()) == 0;
}

BinaryPropertyList::BinaryPropertyList(std::span<const std::uint8_t> bytes, unsigned offsetSize, unsigned referenceSize,
                                       std::uint64_t objectCount, std::uint64_t topObject,
                                       std::uint64_t offsetTableOffset)
    : m_bytes(bytes),
      m_offsetSize(offsetSize),
      m_referenceSize(referenceSize),
      m_objectCount(objectCount),
      m_topObject(topObject),
      m_offsetTableOffset(offsetTableOffset) {}

Expected<BinaryPropertyList> BinaryPropertyList::open(std::span<const std::uint8_t> bytes) {
    if (!hasSignature(bytes))
        return Error(ErrorKind::InvalidData, "not a binary property list");
    if (bytes.size() < kHeaderSize + 1 + kTrailerSize)
        return Error(ErrorKind::InvalidData, "binary property list too short");
    const std::uint8_t* trailer = bytes.data() + bytes.size() - kTrailerSize;
    const unsigned offsetSize = trailer[6];
    const unsigned referenceSize = trailer[7];
    const std::uint64_t objectCount = readBigEndian(trailer + 8, 8);
    const std::uint64_t topObject = readBigEndian(trailer + 16, 8);
    const std::uint64_t tableOffset = readBigEndian(trailer + 24, 8);
    const std::uint64_t tableEnd = bytes.size() - kTrailerSize;

    if (offsetSize < 1 || offsetSize > 8 || referenceSize < 1 || referenceSize > 8)
        return Error(ErrorKind::InvalidData, "binary property list has invalid integer sizes in its trailer");
    if (objectCount == 0 || topObject >= objectCount)
        return Error(ErrorKind::InvalidData, "binary property list has no top object");
    // The offset table lies between the objects and the trailer; checking its extent bounds
    // the object count by the input size.
    if (tableOffset < kHeaderSize + 1 || tableOffset > tableEnd || objectCount > (tableEnd - tableOffset) / offsetSize)
        return Error(ErrorKind::InvalidData, "binary property list offset table does not fit the file");
    if (referenceSize < 8 && (objectCount - 1) >> (8 * referenceSize) != 0)
        return Error(ErrorKind::InvalidData, "binary property list references are too narrow for its object count");
    return BinaryPropertyList(bytes, offsetSize, referenceSize, objectCount, topObject, tableOffset);
}

bool BinaryPropertyList::fits(std::uint64_t position, std::uint64_t length) const {
    return position <= m_offsetTableOffset && length <= m_offsetTableOffset - position;
}

std::uint64_t BinaryPropertyList::readReference(const std::uint8_t* at) const {
    return readBigEndian(at, m_referenceSize);
}

std::uint64_t BinaryPropertyList::reference(const Object& collection, std::size_t i) const {
    return readReference(collection.references + i * m_referenceSize);
}

std::optional<std::uint64_t> BinaryPropertyList::readCount(std::uint8_t nibble, std::uint64_t& position) const {
    if (nibble != 0xF)
        return nibble;
    if (!fits(position, 1))
        return std::nullopt;
    const std::uint8_t marker = m_bytes[position];
    const unsigned size = 1u << (marker & 0xF);
    if ((marker & 0xF0) != 0x10 || size > 8 || !fits(position + 1, size))
        return std::nullopt;
    const std::uint64_t count = readBigEndian(m_bytes.data() + position + 1, size);
    position += 1 + size;
    return count;
}

std::uint64_t BinaryPropertyList::offsetOf(std::uint64_t index) const {
    if (index >= m_objectCount)
        return kNoOffset;
    const std::uint64_t position =
        readBigEndian(m_bytes.data() + m_offsetTableOffset + index * m_offsetSize, m_offsetSize);
    if (position < kHeaderSize || !fits(position, 1))
        return kNoOffset;
    return position;
}

bool BinaryPropertyList::uid(std::uint64_t index, std::uint64_t& value) const {
    const std::uint64_t position = offsetOf(index);
    if (position == kNoOffset)
        return false;
    const std::uint8_t marker = m_bytes[position];
    const unsigned size = (marker & 0xFu) + 1u;
    if ((marker >> 4) != 0x8 || size > 8 || !fits(position + 1, size))
        return false;
    value = readBigEndian(m_bytes.data() + position + 1, size);
    return true;
}

bool BinaryPropertyList::asciiEquals(std::uint64_t index, std::string_view ascii) const {
    std::uint64_t position = offsetOf(index);
    if (position == kNoOffset)
        return false;
    const std::uint8_t marker = m_bytes[position++];
    if ((marker >> 4) != 0x5)
        return false;
    const auto count = readCount(marker & 0xF, position);
    return count && *count == ascii.size() && fits(position, *count) &&
           std::memcmp(m_bytes.data() + position, ascii.data(), ascii.size()) == 0;
}

std::optional<BinaryPropertyList::Object> BinaryPropertyList::object(std::uint64_t index) const {
    Object object;
    if (!read(index, object))
        return std::nullopt;
    return object;
}

bool BinaryPropertyList::read(std::uint64_t index, Object& object) const {
    std::uint64_t position = offsetOf(index);
    if (position == kNoOffset)
        return false;
    object = Object();

    const std::uint8_t marker = m_bytes[position++];
    const std::uint8_t nibble = marker & 0xF;
    const std::uint8_t* at = m_bytes.data() + position;

    switch (marker >> 4) {
    case 0x0:
        if (marker == 0x08 || marker == 0x09) {
            object.kind = Kind::Boolean;
            object.boolean = marker == 0x09;
        } else if (marker != 0x00 && marker != 0x0F) {
            return false;
        }
        return true;

    case 0x1: {
        // 1, 2 and 4 bytes are unsigned, 8 bytes signed, 16 bytes an unsigned value above the
        // signed range (high half zero) or a sign-extended negative one.
        const unsigned size = 1u << nibble;
        if (size > 16 || !fits(position, size))
            return false;
        object.kind = Kind::Integer;
        if (size == 16) {
            const std::uint64_t high = readBigEndian(at, 8);
            const std::uint64_t low = readBigEndian(at + 8, 8);
            if (high == 0)
                object.integer = Integer::fromUnsigned(low);
            else if (high == ~std::uint64_t{0} && (low >> 63) != 0)
                object.integer = Integer::fromSigned(static_cast<std::int64_t>(low));
            else
                return false;
        } else if (size == 8) {
            object.integer = Integer::fromSigned(static_cast<std::int64_t>(readBigEndian(at, 8)));
        } else {
            object.integer = Integer::fromUnsigned(readBigEndian(at, size));
        }
        return true;
    }

    case 0x2:
    case 0x3: {
        const bool isDate = (marker >> 4) == 0x3;
        if ((nibble != 2 && nibble != 3) || (isDate && nibble != 3))
            return false;
        const unsigned size = 1u << nibble;
        if (!fits(position, size))
            return false;
        object.kind = isDate ? Kind::Date : Kind::Real;
        if (size == 4) {
            object.real = std::bit_cast<float>(static_cast<std::uint32_t>(readBigEndian(at, 4)));
            object.isSinglePrecision = true;
        } else {
            object.real = std::bit_cast<double>(readBigEndian(at, 8));
        }
        return true;
    }

    case 0x4:
    case 0x5:
    case 0x6: {
        const auto count = readCount(nibble, position);
        if (!count)
            return false;
        const std::uint64_t unitSize = (marker >> 4) == 0x6 ? 2 : 1;
        if (*count > m_offsetTableOffset / unitSize || !fits(position, *count * unitSize))
            return false;
        object.kind = (marker >> 4) == 0x4 ? Kind::Data : (marker >> 4) == 0x5 ? Kind::AsciiString : Kind::Utf16String;
        object.count = static_cast<std::size_t>(*count);
        object.payload =
            m_bytes.subspan(static_cast<std::size_t>(position), static_cast<std::size_t>(*count * unitSize));
        return true;
    }

    case 0x8: {
        const unsigned size = nibble + 1u;
        if (size > 8 || !fits(position, size))
            return false;
        object.kind = Kind::Uid;
        object.uid = readBigEndian(at, size);
        return true;
    }

    case 0xA:
    case 0xC:
    case 0xD: {
        const auto count = readCount(nibble, position);
        if (!count)
            return false;
        const std::uint64_t perEntry = ((marker >> 4) == 0xD ? 2u : 1u) * m_referenceSize;
        if (*count > m_offsetTableOffset / perEntry || !fits(position, *count * perEntry))
            return false;
        object.kind = (marker >> 4) == 0xA ? Kind::Array : (marker >> 4) == 0xC ? Kind::Set : Kind::Dictionary;
        object.count = static_cast<std::size_t>(*count);
        object.references = m_bytes.data() + position;
        return true;
    }

    default:
        return false;
    }
}

std::string BinaryPropertyList::text(const Object& string) {
    if (string.kind == Kind::Utf16String)
        return utf::utf8FromUtf16BigEndian(string.payload);
    for (std::uint8_t byte : string.payload) {
        if (byte >= 0x80)
            return utf::utf8FromLatin1(string.payload);
    }
    return std::string(reinterpret_cast<const char*>(string.payload.data()), string.payload.size());
}

bool BinaryPropertyList::textEquals(const Object& string, std::string_view ascii) {
    return string.kind == Kind::AsciiString && string.payload.size() == ascii.size() &&
           std::memcmp(string.payload.data(), ascii.data(), ascii.size()) == 0;
}

} // namespace vexo::plist
