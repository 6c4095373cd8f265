#include "phone/PersistentIDText.h"

#include <charconv>

namespace vexo::phone {

std::string persistentIDText(media::PersistentID persistentID) {
    char text[17];
    const auto result = std::to_chars(text, text + sizeof text, persistentID, 16);
    std::string upper(text, result.ptr);
    for (char& c : upper)
        if (c >= 'a' && c <= 'f')
            c = static_cast<char>(c - 'a' + 'A');
    return upper;
}

std::optional<media::PersistentID> persistentIDFromText(std::string_view text) {
    if (text.empty() || text.size() > 16)
        return std::nullopt;
    media::PersistentID value = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value, 16);
    if (result.ec != std::errc() || result.ptr != text.data() + text.size() || value == 0)
        return std::nullopt;
    return value;
}

} // namespace vexo::phone
