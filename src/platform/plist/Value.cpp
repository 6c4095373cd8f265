#include "platform/plist/Value.h"

#include <cmath>
#include <limits>

#include "platform/plist/NumericText.h"

namespace vexo::plist {
namespace {

// C conversion of a double to int64, made total: NaN reads 0, out-of-range values saturate
// instead of being undefined.
std::int64_t truncatedToInt64(double value) {
    if (std::isnan(value))
        return 0;
    if (value >= 9223372036854775808.0)
        return std::numeric_limits<std::int64_t>::max();
    if (value < -9223372036854775808.0)
        return std::numeric_limits<std::int64_t>::min();
    return static_cast<std::int64_t>(value);
}

std::uint64_t truncatedToUInt64(double value) {
    if (value >= 18446744073709551616.0)
        return std::numeric_limits<std::uint64_t>::max();
    if (value >= 9223372036854775808.0)
        return static_cast<std::uint64_t>(value);
    return static_cast<std::uint64_t>(truncatedToInt64(value));
}

} // namespace

const Value& nothing() {
    static const Value kNothing;
    return kNothing;
}

Value Value::unknownObject(std::string className) {
    Value value;
    value.m_storage = Null{std::move(className)};
    return value;
}

const std::string* Value::archivedClassName() const {
    const auto* null = std::get_if<Null>(&m_storage);
    if (null == nullptr || null->archivedClassName.empty())
        return nullptr;
    return &null->archivedClassName;
}

const Value& Value::operator[](std::string_view key) const {
    if (const auto* dictionary = asDictionary()) {
        const auto found = dictionary->find(key);
        if (found != dictionary->end())
            return found->second;
    }
    return nothing();
}

const Value& Value::operator[](std::size_t index) const {
    if (const auto* array = asArray(); array != nullptr && index < array->size())
        return (*array)[index];
    return nothing();
}

void Value::set(std::string key, Value value) {
    std::get<Dictionary>(m_storage).insert_or_assign(std::move(key), std::move(value));
}

std::size_t Value::count() const {
    if (const auto* dictionary = asDictionary())
        return dictionary->size();
    if (const auto* array = asArray())
        return array->size();
    return 0;
}

std::int64_t Value::integerValue() const {
    if (const auto* integer = asInteger())
        return integer->asSigned();
    if (const auto* real = asReal())
        return truncatedToInt64(real->value);
    if (const auto* boolean = asBoolean())
        return *boolean ? 1 : 0;
    if (const auto* string = asString())
        return text::scanInteger(*string);
    return 0;
}

std::int32_t Value::intValue() const {
    // NSNumber's intValue keeps the low 32 bits, as a C cast does.
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(integerValue() & 0xffffffff));
}

std::uint64_t Value::unsignedLongLongValue() const {
    if (const auto* integer = asInteger())
        return integer->bits;
    if (const auto* real = asReal())
        return truncatedToUInt64(real->value);
    if (const auto* boolean = asBoolean())
        return *boolean ? 1 : 0;
    if (const auto* string = asString())
        return text::scanUnsignedInteger(*string);
    return 0;
}

double Value::doubleValue() const {
    if (const auto* integer = asInteger()) {
        return integer->isUnsigned ? static_cast<double>(integer->bits) : static_cast<double>(integer->asSigned());
    }
    if (const auto* real = asReal())
        return real->value;
    if (const auto* boolean = asBoolean())
        return *boolean ? 1.0 : 0.0;
    if (const auto* string = asString())
        return text::scanDouble(*string);
    return 0;
}

float Value::floatValue() const {
    if (const auto* string = asString())
        return text::scanFloat(*string);
    if (const auto* integer = asInteger()) {
        return integer->isUnsigned ? static_cast<float>(integer->bits) : static_cast<float>(integer->asSigned());
    }
    return static_cast<float>(doubleValue());
}

bool Value::boolValue() const {
    if (const auto* boolean = asBoolean())
        return *boolean;
    if (const auto* integer = asInteger())
        return integer->bits != 0;
    if (const auto* real = asReal())
        return real->value != 0;
    if (const auto* string = asString())
        return text::scanBool(*string);
    return false;
}

std::optional<std::string> Value::stringValue() const {
    if (const auto* string = asString())
        return *string;
    if (const auto* integer = asInteger()) {
        return integer->isUnsigned ? text::describeUnsigned(integer->bits) : text::describeInteger(integer->asSigned());
    }
    if (const auto* real = asReal())
        return text::describeReal(real->value, real->isSinglePrecision);
    if (const auto* boolean = asBoolean())
        return std::string(*boolean ? "1" : "0");
    return std::nullopt;
}

std::optional<Array> Value::arrayValue() const {
    if (const auto* array = asArray())
        return *array;
    return std::nullopt;
}

} // namespace vexo::plist
