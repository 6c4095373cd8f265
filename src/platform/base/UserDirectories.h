#pragma once

#include <optional>
#include <string>

namespace vexo {

// The user's folders as the program was told them at start-up (HOME, XDG_DATA_HOME,
// XDG_CONFIG_HOME): each nothing when unset or empty. A relative value is kept as given;
// each user of it applies its own rule (the XDG base-directory rules ignore one).
struct UserDirectories {
    std::optional<std::string> home{};
    std::optional<std::string> dataHome{};
    std::optional<std::string> configHome{};
};

} // namespace vexo
