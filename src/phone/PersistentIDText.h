#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/media/MediaType.h"

// Persistent identifiers as the link carries them: upper-case hexadecimal without leading
// zeros or prefix ("%llX"), the form the watch makes of its local media items.
namespace vexo::phone {

[[nodiscard]] std::string persistentIDText(media::PersistentID persistentID);

// The identifier in `text`: 1 to 16 hexadecimal digits of either case, nothing else (no
// blanks, sign or prefix). Nothing for any other text and for 0, which names no item.
[[nodiscard]] std::optional<media::PersistentID> persistentIDFromText(std::string_view text);

} // namespace vexo::phone
