#pragma once

#include "platform/graphics/Rect.h"
#include "platform/watchkit/Color.h"

#include <chrono>
#include <nlohmann/json.hpp>
#include <optional>

// How values appear in snapshots and change records, so that every writer spells them alike.
namespace vexo::watchkit::snapshot {

// {"red": r, "green": g, "blue": b, "alpha": a}, components 0 to 1; null for nothing.
[[nodiscard]] nlohmann::json color(const std::optional<Color>& color);

// {"x": x, "y": y, "width": w, "height": h}, in pixels.
[[nodiscard]] nlohmann::json rect(const graphics::Rect& rect);

// Seconds since 1970-01-01 UTC, as a browser's Date takes them (divided by 1000).
[[nodiscard]] double secondsSince1970(std::chrono::system_clock::time_point time);

} // namespace vexo::watchkit::snapshot
