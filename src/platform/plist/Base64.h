#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// Standard base64 (RFC 4648, with padding), the form data takes in JSON and XML property lists.
namespace vexo::plist::base64 {

std::string encode(std::span<const std::uint8_t> bytes);

// Decodes `text`, ignoring ASCII white space (XML property lists wrap their data lines).
// Nothing when another character, a misplaced '=' or a truncated quantum appears.
std::optional<std::vector<std::uint8_t>> decode(std::string_view text);

} // namespace vexo::plist::base64
