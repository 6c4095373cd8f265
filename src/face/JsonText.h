#pragma once

#include <optional>
#include <string_view>

#include <nlohmann/json.hpp>

namespace vexo::face {

// Arrays and objects nested deeper than this are refused before parsing: the parser and
// the destructor of a JSON value recurse once per level.
inline constexpr int kMaximumJsonDepth = 64;

// The JSON value `text` holds, or nothing when it is not JSON or nests deeper than
// kMaximumJsonDepth. Thread-safe.
[[nodiscard]] std::optional<nlohmann::json> parseJsonText(std::string_view text);

} // namespace vexo::face
