#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/base/Expected.h"
#include "platform/plist/Value.h"

// A read-only view of a binary property list ("bplist00"), the container format of keyed
// archives. Objects are read on demand by their index in the offset table, which is how a
// keyed archive addresses them, so nothing is built that the reader does not ask for.
//
// Every read is bounds-checked: a malformed list yields nothing, never a read outside the
// bytes, and no count can make the reader allocate more than the input could hold. The view
// does not own the bytes; they must outlive it.
//
// We read and write property lists ourselves rather than through libplist because message
// files and datagrams come from other processes, and libplist overflows its stack on deeply
// nested input, frees XML trees recursively and cannot write unsigned values above INT64_MAX.
namespace vexo::plist {

class BinaryPropertyList {
public:
    enum class Kind : std::uint8_t {
        Null,
        Boolean,
        Integer,
        Real,
        Date,
        Data,
        AsciiString,
        Utf16String,
        Uid,
        Array,
        Set,
        Dictionary,
    };

    // One object, as stored. Which fields mean something depends on `kind`:
    // Boolean: boolean. Integer: integer. Real and Date: real (and isSinglePrecision).
    // Data, AsciiString, Utf16String: payload (UTF-16 big-endian for Utf16String).
    // Uid: uid. Array, Set, Dictionary: count entries, read with reference() / key() / value().
    struct Object {
        Kind kind = Kind::Null;
        bool boolean = false;
        Integer integer;
        double real = 0;
        bool isSinglePrecision = false;
        std::uint64_t uid = 0;
        std::span<const std::uint8_t> payload;
        std::size_t count = 0;
        const std::uint8_t* references = nullptr;

        bool isString() const { return kind == Kind::AsciiString || kind == Kind::Utf16String; }
        bool isCollection() const { return kind == Kind::Array || kind == Kind::Set || kind == Kind::Dictionary; }
    };

    // True when `bytes` start with the binary property list signature.
    static bool hasSignature(std::span<const std::uint8_t> bytes);

    // Checks the header and trailer. An InvalidData error when they are inconsistent with the
    // size of `bytes`.
    static Expected<BinaryPropertyList> open(std::span<const std::uint8_t> bytes);

    std::uint64_t objectCount() const { return m_objectCount; }
    std::uint64_t topObject() const { return m_topObject; }

    // The object at `index` of the offset table; nothing when the index is out of range or
    // the object's bytes are malformed.
    std::optional<Object> object(std::uint64_t index) const;
    // The same into `object`; false (and `object` unspecified) where object() gives nothing.
    // Decoders call this one: an optional of this size returned by value costs a store
    // forwarding stall on every call.
    bool read(std::uint64_t index, Object& object) const;

    // Sets `value` to the UID object at `index`; false when that is not a well-formed UID. A
    // shortcut of read() for the archive's most common object.
    bool uid(std::uint64_t index, std::uint64_t& value) const;

    // True when the object at `index` is an ASCII string equal to `ascii`. A shortcut of
    // object() and textEquals() for key lookups.
    bool asciiEquals(std::uint64_t index, std::string_view ascii) const;

    // References held by a collection. REQUIRES: `i < collection.count`. The result is an
    // object index that has not been checked against objectCount(); object() checks it.
    std::uint64_t reference(const Object& collection, std::size_t i) const;
    std::uint64_t key(const Object& dictionary, std::size_t i) const { return reference(dictionary, i); }
    std::uint64_t value(const Object& dictionary, std::size_t i) const {
        return readReference(dictionary.references + (dictionary.count + i) * m_referenceSize);
    }

    // The text of a string object as UTF-8. Bytes of an "ASCII" string above 0x7F are read as
    // Latin-1; unpaired UTF-16 surrogates become U+FFFD.
    static std::string text(const Object& string);
    // True when the string object is exactly `ascii` (no allocation; used for archive keys).
    static bool textEquals(const Object& string, std::string_view ascii);

private:
    BinaryPropertyList(std::span<const std::uint8_t> bytes, unsigned offsetSize, unsigned referenceSize,
                       std::uint64_t objectCount, std::uint64_t topObject, std::uint64_t offsetTableOffset);

    std::uint64_t readReference(const std::uint8_t* at) const;
    // Where the object at `index` starts; kNoOffset when the index or the offset is out of range.
    static constexpr std::uint64_t kNoOffset = ~std::uint64_t{0};
    std::uint64_t offsetOf(std::uint64_t index) const;
    // Reads the element count that follows a marker whose low nibble is `nibble`; advances
    // `position`. Nothing when the count's own encoding is malformed.
    std::optional<std::uint64_t> readCount(std::uint8_t nibble, std::uint64_t& position) const;
    // True when `length` bytes fit between `position` and the end of the object area.
    bool fits(std::uint64_t position, std::uint64_t length) const;

    std::span<const std::uint8_t> m_bytes;
    unsigned m_offsetSize;
    unsigned m_referenceSize;
    std::uint64_t m_objectCount;
    std::uint64_t m_topObject;
    std::uint64_t m_offsetTableOffset;
};

} // namespace vexo::plist
