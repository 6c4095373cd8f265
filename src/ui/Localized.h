#pragma once

#include <string>
#include <string_view>

namespace vexo::ui {

// The main bundle's text for `key` in the default table, with an empty default value: a key
// the tables do not have shows as itself.
[[nodiscard]] std::string localizedString(std::string_view key);

} // namespace vexo::ui
