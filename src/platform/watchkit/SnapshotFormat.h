#pragma once

#include <chrono>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "platform/graphics/Rect.h"
#include "platform/watchkit/Color.h"

// How values appear in snapshots and change records, so that every writer spells them alike.
namespace vexo::watchkit::snapshot {

// {"red": r, "green": g, "blue": b, "alpha": a}, components 0 to 1; null for nothing.
[[nodiscard]] nlohmann::json color(const std::optional<Color>& color);

// {"x": x, "y": y, "width": w, "height": h}, in pixels.
[[nodiscard]] nlohmann::json rect(const graphics::Rect& rect);

// `text` as a JSON string, each malformed UTF-8 sequence replaced by U+FFFD, so that a
// snapshot always dumps (song titles come from file tags); null for nothing.
[[nodiscard]] nlohmann::json text(const std::optional<std::string>& text);

// Seconds since 1970-01-01 UTC, as a browser's Date takes them (divided by 1000).
[[nodiscard]] double secondsSince1970(std::chrono::system_clock::time_point time);

} // namespace vexo::watchkit::snapshot
