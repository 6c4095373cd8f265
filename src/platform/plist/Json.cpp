#include "platform/plist/Json.h"

#include <cmath>

#include "platform/plist/Base64.h"
#include "platform/plist/KeyedArchiveFormat.h"

namespace vexo::plist::json {
namespace {

constexpr const char* kDataKey = "$data";
constexpr const char* kDateKey = "$date";
constexpr const char* kClassKey = "$class";

bool isTagged(const nlohmann::json& object, const char* tag) {
    return object.size() == 1 && object.contains(tag);
}

Expected<Value> convert(const nlohmann::json& json, std::size_t depth) {
    if (depth > archive::kMaxNestingDepth)
        return Error(ErrorKind::TooLarge, "JSON nests deeper than " + std::to_string(archive::kMaxNestingDepth));
    switch (json.type()) {
    case nlohmann::json::value_t::null:
    case nlohmann::json::value_t::discarded:
        return Value();
    case nlohmann::json::value_t::boolean:
        return Value(json.get<bool>());
    case nlohmann::json::value_t::number_integer:
        return Value(json.get<std::int64_t>());
    case nlohmann::json::value_t::number_unsigned:
        return Value(json.get<std::uint64_t>());
    case nlohmann::json::value_t::number_float:
        return Value(json.get<double>());
    case nlohmann::json::value_t::string:
        return Value(json.get<std::string>());
    case nlohmann::json::value_t::binary: {
        const auto& binary = json.get_binary();
        return Value(Data(binary.begin(), binary.end()));
    }
    case nlohmann::json::value_t::array: {
        Array array;
        array.reserve(json.size());
        for (const auto& element : json) {
            auto value = convert(element, depth + 1);
            if (!value)
                return std::move(value).error();
            array.push_back(std::move(*value));
        }
        return Value(std::move(array));
    }
    case nlohmann::json::value_t::object:
        break;
    }

    if (isTagged(json, kDataKey)) {
        const auto& text = json[kDataKey];
        auto bytes = text.is_string() ? base64::decode(text.get<std::string>()) : std::nullopt;
        if (!bytes)
            return Error(ErrorKind::InvalidData, "\"$data\" must hold base64 text");
        return Value(std::move(*bytes));
    }
    if (isTagged(json, kDateKey)) {
        const auto& seconds = json[kDateKey];
        if (!seconds.is_number())
            return Error(ErrorKind::InvalidData, "\"$date\" must hold seconds since 2001-01-01");
        return Value(Date{seconds.get<double>()});
    }
    if (isTagged(json, kClassKey) && json[kClassKey].is_string())
        return Value::unknownObject(json[kClassKey].get<std::string>());

    Dictionary dictionary;
    for (const auto& [key, element] : json.items()) {
        auto value = convert(element, depth + 1);
        if (!value)
            return std::move(value).error();
        dictionary.emplace(key, std::move(*value));
    }
    return Value(std::move(dictionary));
}

} // namespace

nlohmann::json toJson(const Value& value) {
    switch (value.type()) {
    case Value::Type::Null:
        if (const auto* className = value.archivedClassName())
            return {{kClassKey, *className}};
        return nullptr;
    case Value::Type::Dictionary: {
        auto object = nlohmann::json::object();
        for (const auto& [key, element] : *value.asDictionary())
            object[key] = toJson(element);
        return object;
    }
    case Value::Type::Array: {
        auto array = nlohmann::json::array();
        for (const auto& element : *value.asArray())
            array.push_back(toJson(element));
        return array;
    }
    case Value::Type::String:
        return *value.asString();
    case Value::Type::Integer: {
        const Integer integer = *value.asInteger();
        if (integer.isUnsigned)
            return integer.bits;
        return integer.asSigned();
    }
    case Value::Type::Real: {
        const double real = value.asReal()->value;
        return std::isfinite(real) ? nlohmann::json(real) : nlohmann::json(nullptr);
    }
    case Value::Type::Boolean:
        return *value.asBoolean();
    case Value::Type::Data:
        return {{kDataKey, base64::encode(*value.asData())}};
    case Value::Type::Date:
        return {{kDateKey, value.asDate()->secondsSinceReferenceDate}};
    }
    return nullptr;
}

Expected<Value> fromJson(const nlohmann::json& json) {
    return convert(json, 0);
}

} // namespace vexo::plist::json
