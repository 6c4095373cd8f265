#include "face/JsonText.h"

namespace vexo::face {

namespace {

bool nestsTooDeep(std::string_view text) {
    int depth = 0;
    bool inString = false;
    bool escaped = false;
    for (char c : text) {
        if (inString) {
            if (escaped)
                escaped = false;
            else if (c == '\\')
                escaped = true;
            else if (c == '"')
                inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > kMaximumJsonDepth)
                return true;
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
    return false;
}

} // namespace

std::optional<nlohmann::json> parseJsonText(std::string_view text) {
    if (nestsTooDeep(text))
        return std::nullopt;
    nlohmann::json value = nlohmann::json::parse(text, nullptr, false);
    if (value.is_discarded())
        return std::nullopt;
    return value;
}

} // namespace vexo::face
