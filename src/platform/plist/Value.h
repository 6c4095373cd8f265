#pragma once

#include <compare>
#include <concepts>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

// Property-list values: the contents of every message between the watch and the phone.
//
// A Value is one of: absent (nothing), dictionary (string keys), array, string, integer
// (the whole signed and unsigned 64-bit range), real (double precision, remembering when it
// was made from a single-precision float), boolean, data or date. Values are ordinary
// copyable C++ values; nothing is shared between copies.
//
// Reading follows the host platform's number and string conversions, so that a model can
// read any key the way the phone's code would: a missing key reads as 0, false or nothing,
// the string "245" reads as the integer 245, the number 245 reads as the string "245".
namespace vexo::plist {

class Value;

using Dictionary = std::map<std::string, Value, std::less<>>;
using Array = std::vector<Value>;
using Data = std::vector<std::uint8_t>;

// A point in time as seconds since 2001-01-01 00:00:00 UTC, the host platform's reference date.
struct Date {
    double secondsSinceReferenceDate = 0;
    friend bool operator==(const Date&, const Date&) = default;
};

// An integer of either signedness. Unsigned values that fit the signed range are stored
// signed, so that 5u and 5 are one value; `isUnsigned` is true only above INT64_MAX.
struct Integer {
    std::uint64_t bits = 0;
    bool isUnsigned = false;

    static Integer fromSigned(std::int64_t value) { return {static_cast<std::uint64_t>(value), false}; }
    static Integer fromUnsigned(std::uint64_t value) { return {value, value > static_cast<std::uint64_t>(INT64_MAX)}; }
    std::int64_t asSigned() const { return static_cast<std::int64_t>(bits); }
    friend bool operator==(const Integer&, const Integer&) = default;
};

// A real number. `isSinglePrecision` records that it was made from (or read as) a 32-bit
// float; `value` then holds exactly that float's value, so 0.1f is 0.10000000149011612.
struct Real {
    double value = 0;
    bool isSinglePrecision = false;
    friend bool operator==(const Real& a, const Real& b) { return a.value == b.value; }
};

class Value {
public:
    enum class Type { Null, Dictionary, Array, String, Integer, Real, Boolean, Data, Date };

    // Nothing.
    Value() = default;
    Value(std::nullptr_t) {}

    Value(Dictionary dictionary)
        : m_storage(std::move(dictionary)) {}
    Value(Array array)
        : m_storage(std::move(array)) {}
    Value(std::string string)
        : m_storage(std::move(string)) {}
    Value(std::string_view string)
        : m_storage(std::string(string)) {}
    Value(const char* string)
        : m_storage(std::string(string)) {}
    Value(bool boolean)
        : m_storage(boolean) {}
    Value(Data data)
        : m_storage(std::move(data)) {}
    Value(Date date)
        : m_storage(date) {}
    Value(Integer integer)
        : m_storage(integer) {}
    Value(Real real)
        : m_storage(real) {}
    Value(double real)
        : m_storage(Real{real, false}) {}
    Value(float real)
        : m_storage(Real{static_cast<double>(real), true}) {}

    template <std::signed_integral T>
    requires(!std::same_as<T, bool> && !std::same_as<T, char>) Value(T integer)
        : m_storage(Integer::fromSigned(integer)) {}

    template <std::unsigned_integral T>
    requires(!std::same_as<T, bool>) Value(T integer)
        : m_storage(Integer::fromUnsigned(integer)) {}

    // An object of a class that the unarchiver does not expand. It reads as nothing in
    // every respect; only `archivedClassName` remembers what it was.
    static Value unknownObject(std::string className);

    Type type() const { return static_cast<Type>(m_storage.index()); }
    bool isNull() const { return type() == Type::Null; }
    bool isNumber() const { return type() == Type::Integer || type() == Type::Real || type() == Type::Boolean; }

    // The class name of an unknown archived object, or nothing for every other value.
    const std::string* archivedClassName() const;

    // The stored form, or nullptr when the value is of another type.
    const Dictionary* asDictionary() const { return std::get_if<Dictionary>(&m_storage); }
    Dictionary* asDictionary() { return std::get_if<Dictionary>(&m_storage); }
    const Array* asArray() const { return std::get_if<Array>(&m_storage); }
    Array* asArray() { return std::get_if<Array>(&m_storage); }
    const std::string* asString() const { return std::get_if<std::string>(&m_storage); }
    const Data* asData() const { return std::get_if<Data>(&m_storage); }
    const Date* asDate() const { return std::get_if<Date>(&m_storage); }
    const Integer* asInteger() const { return std::get_if<Integer>(&m_storage); }
    const Real* asReal() const { return std::get_if<Real>(&m_storage); }
    const bool* asBoolean() const { return std::get_if<bool>(&m_storage); }

    // The value under `key` of a dictionary; nothing for a missing key or a non-dictionary.
    const Value& operator[](std::string_view key) const;
    // The element at `index` of an array; nothing when out of range or not an array.
    const Value& operator[](std::size_t index) const;
    // Sets `key` of a dictionary. REQUIRES: this value is a dictionary.
    void set(std::string key, Value value);

    // Number of entries of a dictionary or elements of an array, otherwise 0.
    std::size_t count() const;

    // The host platform's conversions (NSNumber and NSString semantics; 64-bit NSInteger).
    // Numbers convert with C semantics (reals truncate toward zero, saturating; the
    // unsigned reading of a negative integer is its two's complement). Strings are scanned
    // from the start: leading blanks, an optional sign, digits, stopping at the first other
    // character. Every other value reads as 0 or false.
    std::int64_t integerValue() const;
    std::int32_t intValue() const;
    std::uint64_t unsignedLongLongValue() const;
    float floatValue() const;
    double doubleValue() const;
    bool boolValue() const;

    // The string itself, or a number's description ("245", "0.5", "1" for true); nothing for
    // every other value.
    std::optional<std::string> stringValue() const;

    // The array itself when this is an array, otherwise nothing.
    std::optional<Array> arrayValue() const;

    friend bool operator==(const Value& a, const Value& b) { return a.m_storage == b.m_storage; }

private:
    // Nothing; an unknown archived object keeps its class name here.
    struct Null {
        std::string archivedClassName;
        friend bool operator==(const Null&, const Null&) { return true; }
    };

    // The alternatives are in the order of Type.
    std::variant<Null, Dictionary, Array, std::string, Integer, Real, bool, Data, Date> m_storage;
};

// Shared "nothing" returned by lookups that find nothing.
const Value& nothing();

} // namespace vexo::plist
