#pragma once

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "platform/plist/Value.h"

// Values as JSON, for people: the tools print messages this way and accept them this way.
//
// Dictionaries are objects and arrays are arrays; strings, numbers and booleans stay as they
// are; data is {"$data": "<base64>"}, a date {"$date": <seconds since 2001-01-01>}, nothing is
// null and an unknown archived object {"$class": "<name>"}.
namespace vexo::plist::json {

nlohmann::json toJson(const Value& value);

// The value a JSON document stands for. Nothing (with the reason in `error`) for malformed
// base64 under "$data", a "$date" that is not a number, or nesting deeper than
// archive::kMaxNestingDepth. {"$class": ...} reads back as nothing.
std::optional<Value> fromJson(const nlohmann::json& json, std::string& error);

} // namespace vexo::plist::json
