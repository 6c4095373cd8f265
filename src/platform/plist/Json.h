#pragma once

#include <nlohmann/json.hpp>

#include "platform/base/Expected.h"
#include "platform/plist/Value.h"

// Values as JSON, for people: the tools print messages this way and accept them this way.
//
// Dictionaries are objects and arrays are arrays; strings, numbers and booleans stay as they
// are; data is {"$data": "<base64>"}, a date {"$date": <seconds since 2001-01-01>}, nothing is
// null and an unknown archived object {"$class": "<name>"}.
namespace vexo::plist::json {

nlohmann::json toJson(const Value& value);

// The value a JSON document stands for. InvalidData for malformed base64 under "$data" or a
// "$date" that is not a number; TooLarge for nesting deeper than archive::kMaxNestingDepth.
// {"$class": ...} reads back as nothing.
Expected<Value> fromJson(const nlohmann::json& json);

} // namespace vexo::plist::json
